#include "bundle_interface/skein.hpp"

#include <array>
#include <exception>
#include <stdexcept>
#include <string_view>

#include "bundle_interface/holdfast/console.hpp"
#include "bundle_interface/k7_names.hpp"
#include "k7_file.hpp"

namespace Skein {

namespace {

class GroupAttributes : public Holdfast::AttributeStore {
  public:
    GroupAttributes(std::shared_ptr<K7File> file, std::string path)
        : file_(std::move(file)), path_(std::move(path)) {}

    void storeArray(const std::string& name, const Holdfast::ChunkBase& values) override {
        file_->setArray(path_, name, values);
    }
    void storeNumber(const std::string& name, double value) override {
        file_->setScalar(path_, name, value);
    }
    void storeText(const std::string& name, const std::string& text) override {
        file_->setText(path_, name, text);
    }

  private:
    std::shared_ptr<K7File> file_;
    std::string path_;
};

struct FieldText {
    std::string_view field;
    const char* unit;
    const char* long_name;
};

/// Unit and description of a field.
FieldText textsOf(std::string_view field) {
    constexpr std::array<FieldText, 10> known = {{
        {"GPSTime", "s", "time of the shot"},
        {"Waveforms.DirectionDelta", "1", "direction of the beam"},
        {"Positions", "m", "origin of the beam, zeros where it is not told"},
        {"Range", "m", "distance from the origin along the beam"},
        {"Amplitude", "dB", "amplitude of the echo"},
        {"Reflectance", "dB", "reflectance of the target"},
        {"Channel", "1", "number of the channel"},
        {"FWFLength", "1", "number of samples of the waveform"},
        {"Waveforms", "1", "samples of the waveform, zeros behind its length"},
        {"SBL_Time", "s", "time of the first sample, relative to the shot"},
    }};
    for (const FieldText& texts : known) {
        if (texts.field == field) {
            return texts;
        }
    }
    return {field, "1", ""};
}

} // namespace

Holdfast::Attributes attributesOf(const std::shared_ptr<K7File>& file, const std::string& path) {
    return Holdfast::Attributes(std::make_unique<GroupAttributes>(file, path));
}

std::string memberPath(const std::string& parent, const std::string& name) {
    if (name.empty() || name == "." || name.find('/') != std::string::npos ||
        name.find('\0') != std::string::npos) {
        throw std::runtime_error("K7: \"" + name + "\" cannot name an object of a bundle");
    }
    return parent + "/" + name;
}

ElementDescription describeElement(const std::type_info& type) {
    const std::array<ElementDescription, 6> known = {
        SkeinType<double>::description(),
        SkeinType<float>::description(),
        SkeinType<unsigned char>::description(),
        SkeinType<unsigned short>::description(),
        SkeinType<Tern::PhysicalSpace::point>::description(),
        SkeinType<Tern::PhysicalSpace::vector>::description(),
    };
    for (const ElementDescription& element : known) {
        if (*element.type == type) {
            return element;
        }
    }
    throw std::runtime_error("K7: arrays of " + Holdfast::Typename(type) + " cannot be stored");
}

Field::Field(std::shared_ptr<K7File> file, std::string path, std::string name)
    : attributes(attributesOf(file, path))
    , file_(std::move(file))
    , path_(std::move(path))
    , name_(std::move(name)) {
    file_->makeGroup(path_, K7File::Members::many);
    const FieldText texts = textsOf(name_);
    file_->setText(path_, "units", texts.unit);
    file_->addColumn(path_, texts.unit, *texts.long_name == '\0' ? name_ : texts.long_name);
}

void Field::describe(const MemBase& array) {
    if (described_) {
        return;
    }
    const ElementDescription element = array.element();
    file_->setText(path_, "Element", element.name);
    file_->setScalar(path_, "Components", static_cast<std::uint32_t>(element.components));
    file_->describeColumn(path_, array);
    described_ = true;
}

Holdfast::StrongPtr<FragmentID> Field::makeFragmentID(const std::string& fragment) const {
    return Holdfast::StrongPtr<FragmentID>(new FragmentID(fragment));
}

void Field::setPersistentData(const Holdfast::StrongPtr<MemBase>& array,
                              const Holdfast::StrongPtr<FragmentID>& id,
                              const Holdfast::StrongPtr<Holdfast::Cache>&, const std::string&) {
    describe(*array);
    file_->store(path_, id->name, *array);
}

Representation::Representation(std::shared_ptr<K7File> file, std::string path)
    : file_(std::move(file)), path_(std::move(path)) {}

Holdfast::WeakPtr<FieldID> Representation::makeFieldID(const std::string& name) {
    Holdfast::StrongPtr<FieldID>& id = ids_[name];
    if (!id.available()) {
        id = Holdfast::StrongPtr<FieldID>(new FieldID(name));
    }
    return id;
}

FieldProxy Representation::makeField(const Holdfast::WeakPtr<FieldID>& id,
                                     const Holdfast::StrongPtr<FragmentIDCollection>&,
                                     const Holdfast::StrongPtr<MemBase>& array) {
    const Holdfast::StrongPtr<FieldID> known = id.lock();
    Holdfast::StrongPtr<Field>& field = fields_[known->name];
    if (!field.available()) {
        field = Holdfast::StrongPtr<Field>(
            new Field(file_, memberPath(path_, known->name), known->name));
    }
    if (array.available()) {
        field->describe(*array);
    }
    return FieldProxy(field);
}

Grid::Grid(std::shared_ptr<K7File> file, std::string path)
    : attributes(attributesOf(file, path)), file_(std::move(file)), path_(std::move(path)) {
    file_->makeGroup(path_);
}

Holdfast::StrongPtr<Representation> Grid::makeCartesianRepresentation(int dimension,
                                                                      const std::string& chart,
                                                                      unsigned short parameter) {
    Holdfast::StrongPtr<Representation>& representation = representations_[chart];
    if (!representation.available()) {
        const std::string path = memberPath(path_, chart);
        file_->makeGroup(path);
        file_->setText(path, "Chart", chart);
        file_->setScalar(path, "Dimension", static_cast<std::int32_t>(dimension));
        file_->setScalar(path, "Parameter", static_cast<std::uint16_t>(parameter));
        representation = Holdfast::StrongPtr<Representation>(new Representation(file_, path));
    }
    return representation;
}

Slice::Slice(std::shared_ptr<K7File> file, std::string path)
    : file_(std::move(file)), path_(std::move(path)) {}

Holdfast::StrongPtr<Grid> Slice::operator[](const std::string& name) {
    Holdfast::StrongPtr<Grid>& grid = grids_[name];
    if (!grid.available()) {
        grid = Holdfast::StrongPtr<Grid>(new Grid(file_, memberPath(path_, name)));
    }
    return grid;
}

namespace {

K7File& bound(const std::shared_ptr<K7File>& file) {
    if (!file) {
        throw std::runtime_error("K7: the bundle is not bound to a file");
    }
    return *file;
}

} // namespace

const char* bundleCreator() noexcept {
    return "rxp2k7 " RXP2K7_VERSION;
}

Bundle::Bundle() = default;

Bundle::~Bundle() {
    if (!file_) {
        return;
    }
    try {
        file_->finish();
    } catch (const std::exception& e) {
        Holdfast::Console() << e.what();
    }
}

void Bundle::bindToNew(const std::string& path,
                       const Holdfast::StrongPtr<StorageTransformations>& transformations) {
    if (file_) {
        throw std::runtime_error("K7: the bundle is bound to " + path_ + " already");
    }
    file_ = std::make_shared<K7File>(path, transformations.get());
    path_ = path;
}

Holdfast::StrongPtr<Slice> Bundle::operator[](double time) {
    K7File& file = bound(file_);
    Holdfast::StrongPtr<Slice>& slice = slices_[time];
    if (!slice.available()) {
        const std::string path = k7::slicePath(static_cast<std::uint32_t>(slices_.size() - 1));
        file.makeGroup(path);
        file.setScalar(path, "Time", time);
        slice = Holdfast::StrongPtr<Slice>(new Slice(file_, path));
    }
    return slice;
}

void Bundle::setWriteBehind(bool on) {
    bound(file_).setWriteBehind(on);
}

void Bundle::settle() {
    bound(file_).settle();
}

void Bundle::flush() {
    bound(file_).flush();
}

void Bundle::finish() {
    bound(file_).finish();
}

void Bundle::abandon() noexcept {
    if (file_) {
        file_->abandon();
    }
}

void Bundle::discard() noexcept {
    if (file_) {
        file_->discard();
    }
}

std::uint64_t Bundle::fileSize() const {
    return file_ ? file_->size() : 0;
}

bool Bundle::failed() const noexcept {
    return file_ && file_->failed();
}

} // namespace Skein
