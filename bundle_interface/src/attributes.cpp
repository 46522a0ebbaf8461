#include "bundle_interface/holdfast/attributes.hpp"

#include <stdexcept>
#include <utility>

namespace Holdfast {

Attributes::Attributes(std::unique_ptr<AttributeStore> store) : store_(std::move(store)) {}
Attributes::Attributes(Attributes&&) noexcept = default;
Attributes& Attributes::operator=(Attributes&&) noexcept = default;
Attributes::~Attributes() = default;

void Attributes::setAttribute(const std::string& name, const StrongPtr<ChunkBase>& value) {
    store().storeArray(name, *value);
}

void Attributes::setAttribute(const std::string& name, double value) {
    store().storeNumber(name, value);
}

void Attributes::setAttribute(const std::string& name, const std::string& text) {
    store().storeText(name, text);
}

AttributeStore& Attributes::store() const {
    if (!store_) {
        throw std::runtime_error("Holdfast::Attributes: nothing stores these attributes");
    }
    return *store_;
}

} // namespace Holdfast
