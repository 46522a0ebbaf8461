#pragma once

#include <map>
#include <memory>
#include <string>

#include "bundle_interface/holdfast/attributes.hpp"
#include "bundle_interface/holdfast/reference.hpp"
#include "bundle_interface/skein/field.hpp"
#include "bundle_interface/skein/mem_array.hpp"

namespace Skein {

/// The fields of a grid in one chart.
class Representation : public Holdfast::ReferenceBase<Representation> {
  public:
    /// Made by Grid::makeCartesianRepresentation.
    Representation(std::shared_ptr<K7File> file, std::string path);

    /// The identifier of the field `name`; the same one for each call with that name.
    Holdfast::WeakPtr<FieldID> makeFieldID(const std::string& name);

    /// The field by that identifier, made in the file if new. The collection has no role; the array
    /// may be empty, else it tells the field's element type ahead of the first fragment. Throws
    /// std::runtime_error if the identifier is gone or the file cannot take the field.
    FieldProxy makeField(const Holdfast::WeakPtr<FieldID>& id,
                         const Holdfast::StrongPtr<FragmentIDCollection>& fragments,
                         const Holdfast::StrongPtr<MemBase>& array);

  private:
    std::shared_ptr<K7File> file_;
    std::string path_;
    std::map<std::string, Holdfast::StrongPtr<FieldID>> ids_;
    std::map<std::string, Holdfast::StrongPtr<Field>> fields_;
};

/// A named set of rows in a slice.
class Grid : public Holdfast::ReferenceBase<Grid> {
  public:
    /// Made by Slice.
    Grid(std::shared_ptr<K7File> file, std::string path);

    /// The representation in `chart`, made in the file if new; the same one for each call with that
    /// chart. Throws std::runtime_error if the file cannot take it.
    Holdfast::StrongPtr<Representation>
    makeCartesianRepresentation(int dimension, const std::string& chart, unsigned short parameter);

    Holdfast::Attributes attributes; ///< stored with the grid

  private:
    std::shared_ptr<K7File> file_;
    std::string path_;
    std::map<std::string, Holdfast::StrongPtr<Representation>> representations_;
};

/// The grids of a bundle at one time.
class Slice : public Holdfast::ReferenceBase<Slice> {
  public:
    /// Made by Bundle.
    Slice(std::shared_ptr<K7File> file, std::string path);

    /// The grid of that name, made in the file if new. Throws std::runtime_error if the file cannot
    /// take it.
    Holdfast::StrongPtr<Grid> operator[](const std::string& name);

  private:
    std::shared_ptr<K7File> file_;
    std::string path_;
    std::map<std::string, Holdfast::StrongPtr<Grid>> grids_;
};

} // namespace Skein
