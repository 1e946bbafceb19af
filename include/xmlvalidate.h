// xmlvalidate.h - the records of XmlDocument::Validate: what a check of a
// document's tree against a document type definition found.
//
// The check compares the finished tree with the model and changes neither.
// It follows the validity rules of XML 1.0 as far as the model holds them:
//
// - the root element is named as the document type (when the definition
//   names one);
// - every element is declared; EMPTY has neither children nor text, ANY
//   takes any declared children, mixed content only the names it lists,
//   element content children that match its model and no text but white
//   space (0x20, 0x09, 0x0A, 0x0D);
// - every attribute is declared for its element and stands once; #REQUIRED
//   ones are present; #FIXED ones have the fixed value; enumerations hold one
//   of their values; ID values are names, unique in the document; IDREF and
//   IDREFS name IDs of the document; NMTOKEN and NMTOKENS are name tokens;
// - the definition itself: an element declared once, at most one ID
//   attribute per element, no default on an ID, defaults of the form their
//   type needs, no value twice in one enumeration, at most one NOTATION
//   attribute per element and none on an EMPTY element;
// - a content model that is not deterministic is reported once per element
//   definition, at the first element that uses it; its elements are still
//   checked exactly against it.
//
// Attribute values are held as written. They are compared as XML reads
// them, without being changed: character and entity references replaced
// (general entities of the document's own definition first, then of the
// definition checked against), white space characters as blanks, and for
// all types but CDATA leading and trailing blanks dropped and runs of blanks
// made one. In a value that is compared (all but CDATA values without
// #FIXED), a reference to an undefined entity, one that is malformed, one
// that reaches itself or nests deeper than XmlDocument::MaxEntityNesting,
// or expansion beyond what the parser allows, is a violation too; a value
// that nothing is compared with is not read.
//
// What the library's model does not hold, and how the check treats it:
//
// - Unparsed entities do not exist here (a declaration with NDATA is
//   rejected), so no value of an ENTITY or ENTITIES attribute can name one:
//   each such value is a violation (valEntityAttribute), as XML's rule says
//   for a document without unparsed entities. The values must be names.
// - The names of a NOTATION type and the notation declarations are not
//   kept: a NOTATION value is only checked to be a name.
// - A second attribute-list declaration for an element is not merged with
//   the first: as everywhere in the library, the first one counts.
// - A name twice in a mixed list or a choice is kept once, so XML's rule
//   against it cannot be checked.
// - The tree keeps no comments, processing instructions or CDATA sections,
//   and no trace of where text came from: an EMPTY element holding only a
//   comment counts as empty, and white space from a character reference or
//   a CDATA section counts as white space in element content.
// - An element definition without a type (elemNone, left by a program)
//   takes any content, as ANY does.
#pragma once

#include <utility>

#include "ozmutil.h"

class XmlElement;

// Kind of a violation.
enum XmlViolationKind : int {
    valNoDefinition = 1,          // the document has no definition to be checked against
    valRootName = 2,              // no root element, or one not named as the document type
    valUndeclaredElement = 3,     // an element without a declaration
    valEmptyContent = 4,          // an EMPTY element with children or text
    valMixedContent = 5,          // a child that the element's mixed content does not list
    valElementContent = 6,        // children that do not match the element's content model
    valTextInContent = 7,         // text other than white space in element content
    valNondeterministic = 8,      // a content model that is not deterministic
    valUndeclaredAttribute = 9,   // an attribute without a declaration for its element
    valDuplicateAttribute = 10,   // an attribute that stands twice on an element
    valMissingAttribute = 11,     // a #REQUIRED attribute that is absent
    valFixedAttribute = 12,       // a #FIXED attribute with another value
    valEnumeration = 13,          // a value that is none of its enumeration's
    valAttributeSyntax = 14,      // a value not of the form of its type (a name, a name token, ...)
    valDuplicateId = 15,          // an ID value that an element before has
    valDanglingIdref = 16,        // an IDREF or IDREFS value that no element has as its ID
    valEntityAttribute = 17,      // an ENTITY or ENTITIES value: names no unparsed entity
    valReference = 18,            // a reference in a value that cannot be replaced
    valDuplicateElementDecl = 19, // an element declared more than once
    valAttributeDecl = 20,        // an attribute declaration that breaks the rules above
    valOutOfMemory = 21           // the check ran out of memory and stopped
};

// One violation: its kind, a message, the element it concerns and that
// element's path from the root, with the position among siblings of the
// same name where there are several ("/book/chapter[3]/title"). A violation
// of the definition itself has no element and an empty path. Element() is
// valid as long as the tree's nodes are (see XmlElement).
class OZM_API XmlViolation {
public:
    XmlViolation() = default;
    XmlViolation(int kind, UCString message, const XmlElement* element, UCString path)
        : m_kind(kind), m_message(std::move(message)), m_element(element), m_path(std::move(path)) {}

    int Kind() const { return m_kind; }
    const UCChar* Message() const { return m_message.c_str(); }
    const XmlElement* Element() const { return m_element; }
    const UCChar* Path() const { return m_path.c_str(); }

    // A short name of a kind for programs ("undeclared-element"); "" for a
    // value that is no kind. Never null.
    static const UCChar* KindName(int kind);

private:
    int m_kind = 0;
    UCString m_message;
    const XmlElement* m_element = nullptr;
    UCString m_path;
};
