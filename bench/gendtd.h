// gendtd.h - deterministic inputs for the definition benchmarks: a document
// with an internal subset, and a definition of its own split into modules.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "gendoc.h"

namespace ozmbench {

// The benchmark document of gendoc.h behind an internal subset that declares
// all its elements and attributes. With references set, the subset also
// declares entities and the content uses them (a name and a Latin-1 letter
// become references).
// stats, if given, receives the counts of the document's body.
std::string GenerateDocumentWithDtd(size_t targetBytes, bool references, GenStats* stats = nullptr);

// A definition of about targetBytes: `elements` element declarations in
// modules, each module behind a conditional section switched by a parameter
// entity, content models and attribute lists built from parameter entities,
// commentary as real definitions carry it. The root is "e0". Each string of
// the result is one module; the first is the driver, which declares the
// switches and includes the others as "modN.mod" through parameter entities.
std::vector<std::string> GenerateDtdModules(size_t targetBytes, int elements, int modules);

// The same definition as one internal subset of a document "<e0/>".
std::string GenerateDtdDocument(size_t targetBytes, int elements);

}  // namespace ozmbench
