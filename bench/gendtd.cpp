// Generator of the definition benchmarks' inputs (see gendtd.h).
#include "gendtd.h"

#include "gendoc.h"

namespace ozmbench {

namespace {

const char* const kFields[] = {"country", "city", "qty", "price", "title", "note", "phone",
                               "tag", "name", "email", "code", "date"};

void ReplaceAll(std::string& s, const std::string& from, const std::string& to) {
    std::string out;
    out.reserve(s.size());
    size_t at = 0;
    for (size_t hit; (hit = s.find(from, at)) != std::string::npos; at = hit + from.size())
        out.append(s, at, hit - at).append(to);
    out.append(s, at, std::string::npos);
    s.swap(out);
}

// The declarations of element i: content, attributes, a comment.
std::string ElementDecls(int i, int elements) {
    const std::string n = "e" + std::to_string(i);
    std::string out = "<!-- ============ " + n + ": an element of the benchmark definition, with its content "
                      "model and attribute list, documented as definitions usually are. ============ -->\n";
    const int first = 2 * i + 1;
    if (first < elements) {
        out += "<!ELEMENT " + n + " (title?, (e" + std::to_string(first);
        if (first + 1 < elements)
            out += " | e" + std::to_string(first + 1);
        out += " | %block;)*)>\n";
    } else {
        out += "<!ELEMENT " + n + " (#PCDATA | %inline;)*>\n";
    }
    out += "<!ATTLIST " + n + "\n    %common.attrib;\n    kind (alpha | beta | gamma | delta) 'alpha'\n"
           "    ref IDREF #IMPLIED\n    size NMTOKEN #IMPLIED>\n";
    return out;
}

std::string Preamble() {
    return "<!ENTITY % common.attrib \"id ID #IMPLIED class CDATA #IMPLIED title CDATA #IMPLIED "
           "lang NMTOKEN #IMPLIED\">\n<!ENTITY % inline \"em | strong | code\">\n<!ENTITY % block \"para | list\">\n"
           "<!ELEMENT title (#PCDATA | %inline;)*>\n<!ELEMENT em (#PCDATA)>\n<!ELEMENT strong (#PCDATA)>\n"
           "<!ELEMENT code (#PCDATA)>\n<!ELEMENT para (#PCDATA | %inline;)*>\n<!ELEMENT list (para+)>\n"
           "<!ENTITY copy \"&#169;\"><!ENTITY product \"ozm benchmark\">\n"
           "<![%unused;[<!ELEMENT never (#PCDATA)><!ATTLIST never x CDATA #IMPLIED>]]>\n";
}

}  // namespace

std::string GenerateDocumentWithDtd(size_t targetBytes, bool references, GenStats* stats) {
    std::string body = GenerateDocument(targetBytes, kDefaultSeed, stats);
    std::string dtd = "<!DOCTYPE dataset [\n<!ELEMENT dataset (group)*>\n<!ATTLIST dataset name CDATA #IMPLIED "
                      "seed CDATA #IMPLIED>\n<!ELEMENT group (group | record)*>\n<!ATTLIST group id ID #IMPLIED "
                      "label CDATA #IMPLIED>\n<!ELEMENT record (";
    for (size_t i = 0; i < sizeof kFields / sizeof kFields[0]; ++i)
        dtd += std::string(i ? " | " : "") + kFields[i];
    dtd += ")*>\n<!ATTLIST record id ID #REQUIRED updated CDATA #IMPLIED region CDATA #IMPLIED status "
           "(active | pending | deleted) 'active' rev NMTOKEN #IMPLIED>\n";
    for (const char* f : kFields)
        dtd += std::string("<!ELEMENT ") + f + " (#PCDATA)>\n";
    if (references) {
        dtd += "<!ENTITY smith \"Smith\">\n<!ENTITY eacute \"&#233;\">\n";
        ReplaceAll(body, "Smith", "&smith;");
        ReplaceAll(body, "\xC3\xA9", "&eacute;");
    }
    return dtd + "]>\n" + body;
}

std::vector<std::string> GenerateDtdModules(size_t targetBytes, int elements, int modules) {
    std::vector<std::string> out(size_t(modules) + 1);
    std::string& driver = out[0];
    driver = "<!-- driver: switches and modules -->\n<!ENTITY % unused \"IGNORE\">\n" + Preamble();
    for (int m = 1; m <= modules; ++m) {
        const std::string k = std::to_string(m);
        driver += "<!ENTITY % mod" + k + ".switch \"INCLUDE\">\n<![%mod" + k + ".switch;[\n<!ENTITY % mod" + k +
                  " SYSTEM \"mod" + k + ".mod\">\n%mod" + k + ";\n]]>\n";
    }
    // Elements dealt round-robin, so that every module has its share; then
    // comments pad each module to its share of the size.
    for (int i = 0; i < elements; ++i)
        out[size_t(1 + i % modules)] += ElementDecls(i, elements);
    size_t total = 0;
    for (const std::string& s : out)
        total += s.size();
    const std::string pad =
        "<!-- Commentary: the meaning of the elements above, their usage and history, as long as real "
        "definitions write it. -->\n";
    for (int m = 1; total < targetBytes; m = m % modules + 1) {
        out[size_t(m)] += pad;
        total += pad.size();
    }
    return out;
}

std::string GenerateDtdDocument(size_t targetBytes, int elements) {
    std::vector<std::string> parts = GenerateDtdModules(targetBytes, elements, 1);
    std::string subset = "<!ENTITY % unused \"IGNORE\">\n" + Preamble() + "<![%unused;[ ignored ]]>\n<![INCLUDE[\n" +
                         parts[1] + "]]>\n";
    return "<!DOCTYPE e0 [\n" + subset + "]>\n<e0/>\n";
}

}  // namespace ozmbench
