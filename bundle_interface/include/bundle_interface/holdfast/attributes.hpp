#pragma once

#include <memory>
#include <string>

#include "bundle_interface/holdfast/chunk.hpp"

namespace Holdfast {

/// Receives the attributes of one object of a bundle. Operations throw std::runtime_error when the
/// store fails.
class AttributeStore {
  public:
    virtual ~AttributeStore() = default;
    /// An array of one dimension, of the element type of `values`.
    virtual void storeArray(const std::string& name, const ChunkBase& values) = 0;
    /// A scalar 64-bit float.
    virtual void storeNumber(const std::string& name, double value) = 0;
    /// A scalar text, UTF-8.
    virtual void storeText(const std::string& name, const std::string& text) = 0;
};

/// Named values of an object of a bundle, stored at once. Each operation sets or replaces one
/// attribute and throws std::runtime_error if that fails or there is no store.
class Attributes {
  public:
    /// Attributes that go to `store`. Without one, setting any fails.
    explicit Attributes(std::unique_ptr<AttributeStore> store = nullptr);
    /// The store goes over; the other one then has none.
    Attributes(Attributes&&) noexcept;
    /// The store goes over; the other one then has none.
    Attributes& operator=(Attributes&&) noexcept;
    ~Attributes();

    /// An array of the chunk's elements.
    void setAttribute(const std::string& name, const StrongPtr<ChunkBase>& value);
    /// A scalar 64-bit float.
    void setAttribute(const std::string& name, double value);
    /// A scalar text, UTF-8.
    void setAttribute(const std::string& name, const std::string& text);

  private:
    AttributeStore& store() const;

    std::unique_ptr<AttributeStore> store_;
};

} // namespace Holdfast
