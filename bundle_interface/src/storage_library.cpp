#include "storage_library.hpp"

#include <algorithm>
#include <iterator>
#include <type_traits>

#include <hdf5.h>

namespace Skein::storage {

static_assert(std::is_same_v<Identifier, hid_t> && std::is_same_v<Status, herr_t>);

std::mutex& libraryMutex() {
    static std::mutex mutex;
    // Files that a full disk left half closed must not be closed at exit.
    [[maybe_unused]] static const herr_t no_exit_handler = H5dont_atexit();
    return mutex;
}

Quiet::Quiet() {
    H5Eget_auto2(H5E_DEFAULT, &function_, &data_);
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

Quiet::~Quiet() {
    H5Eset_auto2(H5E_DEFAULT, function_, data_);
}

extern "C" {
static herr_t keepInnermost(unsigned, const H5E_error2_t* entry, void* text) {
    try {
        *static_cast<std::string*>(text) = entry->desc != nullptr ? entry->desc : "";
    } catch (...) {
        return -1;
    }
    return 0;
}
}

void failFromStack() {
    std::string text;
    H5Ewalk2(H5E_DEFAULT, H5E_WALK_DOWNWARD, keepInnermost, &text);
    throw Failure{text.empty() ? "unknown failure of the storage library" : text};
}

TypePair typesOf(const std::type_info& number) {
    const std::pair<const std::type_info&, TypePair> known[] = {
        {typeid(double), {H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE}},
        {typeid(float), {H5T_IEEE_F32LE, H5T_NATIVE_FLOAT}},
        {typeid(std::int32_t), {H5T_STD_I32LE, H5T_NATIVE_INT32}},
        {typeid(std::uint32_t), {H5T_STD_U32LE, H5T_NATIVE_UINT32}},
        {typeid(std::uint16_t), {H5T_STD_U16LE, H5T_NATIVE_UINT16}},
    };
    const auto* found = std::find_if(std::begin(known), std::end(known),
                                     [&](const auto& k) { return k.first == number; });
    return found == std::end(known) ? TypePair{H5T_STD_U8LE, H5T_NATIVE_UCHAR} : found->second;
}

Handle textType() {
    Handle type(H5Tcopy(H5T_C_S1), H5Tclose);
    check(H5Tset_size(type, H5T_VARIABLE));
    check(H5Tset_cset(type, H5T_CSET_UTF8));
    return type;
}

/// Whether the attribute has that type and shape already, so that its value can be replaced in
/// place.
static bool fits(hid_t attribute, hid_t type, hid_t space) {
    const Handle present_type(H5Aget_type(attribute), H5Tclose);
    const Handle present_space(H5Aget_space(attribute), H5Sclose);
    return check(H5Tequal(present_type, type)) > 0 &&
           check(H5Sextent_equal(present_space, space)) > 0;
}

void setAttribute(hid_t object, const std::string& name, TypePair types, hid_t space,
                  const void* value) {
    Handle attribute;
    if (check(H5Aexists(object, name.c_str())) > 0) {
        attribute = Handle(H5Aopen(object, name.c_str(), H5P_DEFAULT), H5Aclose);
        if (!fits(attribute, types.file, space)) {
            attribute.close();
            check(H5Adelete(object, name.c_str()));
            attribute = Handle();
        }
    }
    if (attribute < 0) {
        attribute =
            Handle(H5Acreate2(object, name.c_str(), types.file, space, H5P_DEFAULT, H5P_DEFAULT),
                   H5Aclose);
    }
    check(H5Awrite(attribute, types.memory, value));
    attribute.close();
}

void setText(hid_t object, const std::string& name, const std::string& text) {
    const Handle type = textType();
    const Handle space(H5Screate(H5S_SCALAR), H5Sclose);
    const char* value = text.c_str();
    setAttribute(object, name, {type, type}, space, &value);
}

} // namespace Skein::storage
