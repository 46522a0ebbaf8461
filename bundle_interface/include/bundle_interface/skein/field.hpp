#pragma once

#include <memory>
#include <string>
#include <utility>

#include "bundle_interface/holdfast/attributes.hpp"
#include "bundle_interface/holdfast/reference.hpp"
#include "bundle_interface/skein/mem_array.hpp"

namespace Skein {

class K7File;

/// Names a field of a representation.
class FieldID : public Holdfast::ReferenceBase<FieldID> {
  public:
    /// The identifier of the field called `text`.
    explicit FieldID(std::string text) : name(std::move(text)) {}
    const std::string name; ///< of the field
};

/// Names a fragment of a field.
class FragmentID : public Holdfast::ReferenceBase<FragmentID> {
  public:
    /// The identifier of the fragment called `text`.
    explicit FragmentID(std::string text) : name(std::move(text)) {}
    const std::string name; ///< of the fragment
};

/// Set of fragment names; this implementation gives it no meaning of its own.
class FragmentIDCollection : public Holdfast::ReferenceBase<FragmentIDCollection> {};

/// One quantity of a grid, stored in fragments. The field's place in the file is made with its
/// first fragment or attribute. Operations throw std::runtime_error with the failed action, the
/// file's path and the cause.
class Field : public Holdfast::ReferenceBase<Field>, public Holdfast::Ageable {
  public:
    /// Made by Representation::makeField.
    Field(std::shared_ptr<K7File> file, std::string path, std::string name);

    /// The identifier of the fragment called `name`; nothing is made in the file.
    Holdfast::StrongPtr<FragmentID> makeFragmentID(const std::string& name) const;

    /// Stores `array` as the fragment `id`, at once and in one write; nothing of it is kept.
    /// Neither the cache nor the text has a role. A fragment that is stored already is an error.
    void setPersistentData(const Holdfast::StrongPtr<MemBase>& array,
                           const Holdfast::StrongPtr<FragmentID>& id,
                           const Holdfast::StrongPtr<Holdfast::Cache>& cache,
                           const std::string& text);

    /// As it was given to Representation::makeFieldID.
    const std::string& name() const noexcept { return name_; }

    Holdfast::Attributes attributes; ///< stored with the field

  private:
    friend class Representation;
    void describe(const ElementDescription& element);

    std::shared_ptr<K7File> file_;
    std::string path_;
    std::string name_;
    bool described_ = false;
};

/// What makeField returns; converts to the reference to the field.
class FieldProxy {
  public:
    /// Of this field, which may be empty.
    explicit FieldProxy(Holdfast::StrongPtr<Field> field) : field_(std::move(field)) {}
    /// The field; valid as long as the proxy.
    operator Holdfast::StrongPtr<Field>&() noexcept { return field_; }

  private:
    Holdfast::StrongPtr<Field> field_;
};

} // namespace Skein
