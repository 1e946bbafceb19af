// gendoc.cpp - the generators of gendoc.h.
#include "gendoc.h"

#include <vector>

namespace ozmbench {
namespace {

// splitmix64: a fixed, well-mixed 64-bit sequence from any seed.
class Rng {
public:
    explicit Rng(uint64_t seed) : m_state(seed) {}

    uint64_t Next() {
        uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    // Uniform in [0, n) by multiply-shift on the top 32 bits; n > 0.
    uint32_t Below(uint32_t n) { return uint32_t(((Next() >> 32) * uint64_t(n)) >> 32); }
    // In [lo, hi], both included.
    uint32_t Range(uint32_t lo, uint32_t hi) { return lo + Below(hi - lo + 1); }
    // True num times in den.
    bool Chance(uint32_t num, uint32_t den) { return Below(den) < num; }

private:
    uint64_t m_state;
};

template <size_t N>
const char* Pick(Rng& rng, const char* const (&pool)[N]) {
    return pool[rng.Below(uint32_t(N))];
}

// Text pools. None holds '<', '&', '>', '"' or "--".
const char* const kFirstNames[] = {
    "Anna",   "Jürgen", "Zoë",     "François", "José",    "Søren",  "Ελένη", "Дмитрий", "Ólafur",
    "Björk",  "太郎",   "美玲",    "Liam",     "Noah",    "Élodie", "Γιώργος", "Наталья", "Łukasz",
    "Maria",  "Peter",  "Chloé",   "Ana",      "Kenji",   "Ines",   "Oskar", "Mia"};
const char* const kLastNames[] = {
    "Müller", "García", "Smith",   "Ørsted",   "Papadopoulos", "Παπαδόπουλος", "Иванов", "Kowalski",
    "山田",   "王",     "Dubois",  "Núñez",    "Brown",        "Åberg",        "Schmidt", "Rossi",
    "Kim",    "Jensen", "Petrović", "Novak",   "Wagner",       "Lefèvre"};
const char* const kCities[] = {
    "München", "Zürich", "São Paulo", "Αθήνα",     "Москва", "東京",       "北京",     "Reykjavík",
    "Kraków",  "Paris",  "New York",  "Göteborg",  "Malmö",  "Θεσσαλονίκη", "Санкт-Петербург", "大阪",
    "Québec",  "Berlin", "London",    "Oslo",      "Madrid", "Lisboa",     "Wien",     "Praha"};
const char* const kCountries[] = {"Deutschland", "Schweiz", "Brasil",  "Ελλάδα", "Россия", "日本",  "中国",
                                  "Ísland",      "Polska",  "France",  "USA",    "Sverige", "Canada", "España",
                                  "Österreich",  "Česko",   "Italia",  "Norge"};
const char* const kWords[] = {
    "quick",   "delivery", "order",   "réservé", "naïve",   "café",    "über",   "straße",  "résumé",
    "δεδομένα", "αρχείο",  "данные",  "отчёт",   "数据",    "文件",    "報告",   "テスト",  "sample",
    "value",   "update",   "ready",   "pending", "blue",    "green",   "river",  "déjà",    "vu",
    "façade",  "smørrebrød", "piñata", "and",    "the",     "of",      "to",     "in",      "for",
    "item",    "stock",    "checked", "shipped", "returned", "größe",  "ελέγχθηκε", "склад", "库存",
    "new",     "old",      "small",   "large",   "north",   "south",   "east",   "west"};
// Characters beyond U+FFFF: four bytes of UTF-8, two units of UTF-16.
const char* const kEmoji[] = {"😀", "🚀", "🎉", "🌍", "📦", "🔥"};
const char* const kLangs[] = {"en", "de", "el", "ru", "ja", "zh", "fr", "es", "pt", "is"};
const char* const kStatus[] = {"active", "archived", "pending", "draft", "deleted", "on-hold"};
const char* const kRegions[] = {"Île-de-France", "Bayern", "Κρήτη", "Сибирь", "関東", "Norte", "Skåne",
                                "Nordrhein-Westfalen", "Attica", "Tōhoku"};
const char* const kDomains[] = {"example.org", "example.com", "mail.test", "post.example"};
const char* const kTags[] = {"a", "b", "vip", "new", "bulk", "eu", "asia", "test", "priorité", "срочно", "急"};
const char* const kLabels[] = {"north", "south", "Nord", "Süd", "Βορράς", "Юг", "东", "西", "archive", "current"};

// Children of records: name and how its text is made.
enum FieldKind { fName, fTitle, fCity, fCountry, fEmail, fPhone, fPrice, fQty, fDate, fNote, fTag, fCode, fCount };
const char* const kFieldNames[fCount] = {"name", "title", "city", "country", "email", "phone",
                                         "price", "qty", "date", "note", "tag", "code"};

enum AttrKind { aLang, aStatus, aRev, aRegion, aUpdated, aCount };
const char* const kAttrNames[aCount] = {"lang", "status", "rev", "region", "updated"};

class Writer {
public:
    Writer(std::string& out, Rng& rng, GenStats& stats) : m_out(out), m_rng(rng), m_stats(stats) {}

    void Indent(int depth) {
        m_out += '\n';
        m_out.append(size_t(depth - 1) * 2, ' ');
    }
    void Number(uint64_t v) { m_out += std::to_string(v); }
    // v as exactly width digits, with leading zeros.
    void Digits(uint64_t v, int width) {
        char buf[24];
        for (int i = width - 1; i >= 0; --i) {
            buf[i] = char('0' + v % 10);
            v /= 10;
        }
        m_out.append(buf, size_t(width));
    }
    void Element(int depth) {
        ++m_stats.elements;
        if (depth > m_stats.maxDepth)
            m_stats.maxDepth = depth;
    }

    void Words(uint32_t lo, uint32_t hi, bool emoji) {
        uint32_t n = m_rng.Range(lo, hi);
        uint32_t at = emoji ? m_rng.Below(n) : n;
        for (uint32_t i = 0; i < n; ++i) {
            if (i)
                m_out += ' ';
            m_out += Pick(m_rng, kWords);
            if (i == at) {
                m_out += ' ';
                m_out += Pick(m_rng, kEmoji);
                ++m_stats.emoji;
            }
        }
    }

    void FieldText(int kind) {
        switch (kind) {
        case fName:
            m_out += Pick(m_rng, kFirstNames);
            m_out += ' ';
            m_out += Pick(m_rng, kLastNames);
            break;
        case fTitle:
            Words(2, 4, m_rng.Chance(1, 40));
            break;
        case fCity:
            m_out += Pick(m_rng, kCities);
            break;
        case fCountry:
            m_out += Pick(m_rng, kCountries);
            break;
        case fEmail:
            m_out += "user";
            Number(m_rng.Below(100000));
            m_out += '@';
            m_out += Pick(m_rng, kDomains);
            break;
        case fPhone:
            m_out += '+';
            Number(m_rng.Range(1, 99));
            m_out += ' ';
            Digits(m_rng.Below(1000), 3);
            m_out += ' ';
            Digits(m_rng.Below(10000000), 7);
            break;
        case fPrice:
            Number(m_rng.Below(5000));
            m_out += '.';
            Digits(m_rng.Below(100), 2);
            break;
        case fQty:
            Number(m_rng.Below(1000));
            break;
        case fDate:
            Date();
            break;
        case fNote:
            Words(3, 8, m_rng.Chance(1, 8));
            break;
        case fTag:
            m_out += Pick(m_rng, kTags);
            break;
        case fCode:
            m_out += char('A' + m_rng.Below(26));
            m_out += char('A' + m_rng.Below(26));
            m_out += '-';
            Digits(m_rng.Below(10000), 4);
            m_out += '-';
            m_out += char('A' + m_rng.Below(26));
            break;
        }
    }

    void Date() {
        Number(m_rng.Range(1990, 2029));
        m_out += '-';
        Digits(m_rng.Range(1, 12), 2);
        m_out += '-';
        Digits(m_rng.Range(1, 28), 2);
    }

    void Attribute(const char* name) {
        m_out += ' ';
        m_out += name;
        m_out += "=\"";
        ++m_stats.attributes;
    }

    void AttrValue(int kind) {
        switch (kind) {
        case aLang:
            m_out += Pick(m_rng, kLangs);
            break;
        case aStatus:
            m_out += Pick(m_rng, kStatus);
            break;
        case aRev:
            Number(m_rng.Range(1, 250));
            break;
        case aRegion:
            m_out += Pick(m_rng, kRegions);
            break;
        case aUpdated:
            Date();
            m_out += 'T';
            Digits(m_rng.Below(24), 2);
            m_out += ':';
            Digits(m_rng.Below(60), 2);
            m_out += ':';
            Digits(m_rng.Below(60), 2);
            m_out += 'Z';
            break;
        }
        m_out += '"';
    }

    // A comment line; its text holds no "--" and does not end in '-'.
    void Comment(int depth) {
        Indent(depth);
        m_out += "<!-- batch ";
        Number(m_rng.Below(100000));
        m_out += m_rng.Chance(1, 2) ? ": checked, geprüft " : ": imported ";
        m_out += "-->";
        ++m_stats.comments;
    }

    // A record at depth: 2 to 4 attributes, 5 to 10 children.
    void Record(int depth) {
        ++m_stats.records;
        Element(depth);
        Indent(depth);
        m_out += "<record";
        Attribute("id");
        m_out += 'r';
        Number(m_stats.records);
        m_out += '"';
        // 1 to 3 further attributes, distinct, in a random order.
        int attrs[aCount] = {aLang, aStatus, aRev, aRegion, aUpdated};
        uint32_t extra = m_rng.Range(1, 3);
        for (uint32_t i = 0; i < extra; ++i) {
            uint32_t j = i + m_rng.Below(uint32_t(aCount) - i);
            int t = attrs[i];
            attrs[i] = attrs[j];
            attrs[j] = t;
            Attribute(kAttrNames[attrs[i]]);
            AttrValue(attrs[i]);
        }
        m_out += '>';

        int fields[fCount];
        for (int i = 0; i < fCount; ++i)
            fields[i] = i;
        uint32_t n = m_rng.Range(5, 10);
        for (uint32_t i = 0; i < n; ++i) {
            uint32_t j = i + m_rng.Below(uint32_t(fCount) - i);
            int t = fields[i];
            fields[i] = fields[j];
            fields[j] = t;
            const char* name = kFieldNames[fields[i]];
            ++m_stats.fields;
            Element(depth + 1);
            Indent(depth + 1);
            m_out += '<';
            m_out += name;
            // Now and then a child without text, written as an empty element.
            if (m_rng.Chance(1, 50)) {
                m_out += "/>";
                continue;
            }
            m_out += '>';
            FieldText(fields[i]);
            m_out += "</";
            m_out += name;
            m_out += '>';
        }
        Indent(depth);
        m_out += "</record>";
    }

    void OpenGroup(int depth) {
        ++m_stats.groups;
        Element(depth);
        Indent(depth);
        m_out += "<group";
        Attribute("id");
        m_out += 'g';
        Number(m_stats.groups);
        m_out += '"';
        if (m_rng.Chance(1, 2)) {
            Attribute("label");
            m_out += Pick(m_rng, kLabels);
            m_out += '"';
        }
        m_out += '>';
    }

    void CloseGroup(int depth) {
        Indent(depth);
        m_out += "</group>";
    }

private:
    std::string& m_out;
    Rng& m_rng;
    GenStats& m_stats;
};

// Deepest level of a group: its records are one level below it and their
// children two, which makes 8 levels with the root at level 1.
constexpr int kMaxGroupDepth = 6;
// Typical size of one record, used to stop close to the requested size.
constexpr size_t kRecordEstimate = 450;

}  // namespace

std::string GenerateDocument(size_t targetBytes, uint64_t seed, GenStats* statsOut) {
    Rng rng(seed);
    GenStats stats;
    std::string out;
    out.reserve(targetBytes + 4096);
    Writer w(out, rng, stats);

    stats.elements = 1;
    stats.maxDepth = 1;
    out += "<dataset name=\"ozm benchmark data\" seed=\"";
    out += std::to_string(seed);
    out += "\">";
    stats.attributes = 2;

    // Open groups with the number of items each still has to write; the root
    // (depth 1) is not on the stack and writes groups until the size is met.
    struct Open {
        int depth;
        uint32_t left;
    };
    std::vector<Open> stack;
    // Bytes of the closing tags of all open groups and of the root.
    auto closing = [&stack]() {
        size_t n = 11;  // "\n</dataset>"
        for (const Open& g : stack)
            n += 9 + size_t(g.depth - 1) * 2;  // "\n", indent, "</group>"
        return n;
    };

    for (;;) {
        bool full = out.size() + closing() + kRecordEstimate > targetBytes;
        if (full && stats.records > 0)
            break;
        if (stack.empty()) {
            w.OpenGroup(2);
            stack.push_back({2, rng.Range(3, 30)});
            continue;
        }
        Open& top = stack.back();
        if (top.left == 0) {
            w.CloseGroup(top.depth);
            stack.pop_back();
            continue;
        }
        --top.left;
        int depth = top.depth;
        if (depth < kMaxGroupDepth && rng.Chance(1, 5)) {
            w.OpenGroup(depth + 1);
            stack.push_back({depth + 1, rng.Range(3, 30)});
            continue;
        }
        if (rng.Chance(1, 25))
            w.Comment(depth + 1);
        w.Record(depth + 1);
    }
    while (!stack.empty()) {
        w.CloseGroup(stack.back().depth);
        stack.pop_back();
    }
    out += "\n</dataset>\n";

    if (statsOut)
        *statsOut = stats;
    return out;
}

namespace {

// Words, commas and full stops up to about `bytes`, broken into lines of
// about 90 columns with `indent` spaces; returns the inline elements written.
size_t Paragraph(std::string& out, Rng& rng, size_t bytes, int indent, GenStats& stats) {
    const size_t start = out.size();
    size_t lineStart = out.size();
    size_t inlines = 0;
    bool sentenceStart = true;
    while (out.size() - start < bytes) {
        if (out.size() - lineStart > 90) {
            out += '\n';
            out.append(size_t(indent), ' ');
            lineStart = out.size();
        } else if (out.size() != start) {
            out += ' ';
        }
        // One word in 60 is marked up.
        if (rng.Chance(1, 60)) {
            ++inlines;
            switch (rng.Below(3)) {
            case 0:
                out += "<em>";
                out += Pick(rng, kWords);
                out += "</em>";
                break;
            case 1:
                out += "<b>";
                out += Pick(rng, kWords);
                out += ' ';
                out += Pick(rng, kWords);
                out += "</b>";
                break;
            default:
                out += "<ref id=\"n";
                out += std::to_string(rng.Below(10000));
                out += "\"/>";
                ++stats.attributes;
                break;
            }
        } else if (rng.Chance(1, 200)) {
            out += Pick(rng, kEmoji);
            ++stats.emoji;
        } else {
            out += sentenceStart ? Pick(rng, kFirstNames) : Pick(rng, kWords);
        }
        sentenceStart = false;
        uint32_t mark = rng.Below(16);
        if (mark == 0) {
            out += '.';
            sentenceStart = true;
        } else if (mark == 1) {
            out += ',';
        }
    }
    if (!sentenceStart)
        out += '.';
    return inlines;
}

}  // namespace

std::string GenerateTextDocument(size_t targetBytes, uint64_t seed, GenStats* statsOut) {
    Rng rng(seed ^ 0x7465787400000000ull);
    GenStats stats;
    std::string out;
    out.reserve(targetBytes + 8192);
    out += "<library>";
    stats.elements = 1;
    stats.maxDepth = 5;  // library, book, chapter, p, em
    // Stops before the paragraph that would pass the size (with room for the
    // closing tags).
    const size_t closing = 40;
    for (size_t book = 1; out.size() + closing < targetBytes; ++book) {
        out += "\n  <book id=\"b";
        out += std::to_string(book);
        out += "\" lang=\"";
        out += Pick(rng, kLangs);
        out += "\">\n    <title>";
        stats.elements += 2 + Paragraph(out, rng, rng.Range(10, 60), 6, stats);
        out += "</title>";
        stats.attributes += 2;
        uint32_t chapters = rng.Range(3, 12);
        for (uint32_t c = 1; c <= chapters && out.size() + closing < targetBytes; ++c) {
            out += "\n    <chapter n=\"";
            out += std::to_string(c);
            out += "\">\n      <heading>";
            stats.elements += 2 + Paragraph(out, rng, rng.Range(10, 50), 8, stats);
            out += "</heading>";
            ++stats.attributes;
            uint32_t paras = rng.Range(4, 20);
            for (uint32_t p = 0; p < paras && out.size() + closing + 4000 < targetBytes; ++p) {
                out += "\n      <p>";
                stats.elements += 1 + Paragraph(out, rng, rng.Range(300, 4000), 8, stats);
                out += "</p>";
            }
            out += "\n    </chapter>";
        }
        out += "\n  </book>";
    }
    out += "\n</library>\n";
    if (statsOut)
        *statsOut = stats;
    return out;
}

std::vector<std::string> GenerateSmallDocuments(size_t count, size_t minBytes, size_t maxBytes, uint64_t seed,
                                                std::vector<GenStats>* stats) {
    Rng rng(seed ^ 0x736D616C6C000000ull);
    std::vector<std::string> docs;
    docs.reserve(count);
    if (stats)
        stats->clear();
    for (size_t i = 0; i < count; ++i) {
        const size_t want = minBytes + rng.Below(uint32_t(maxBytes - minBytes + 1));
        const uint64_t docSeed = rng.Next();
        // The generator stops up to a record short of its target; ask for a
        // little more until the document has the size drawn (or its range's
        // top is reached).
        GenStats one;
        std::string doc = GenerateDocument(want, docSeed, &one);
        for (size_t ask = want; doc.size() < want && ask < maxBytes;) {
            ask += 200;
            GenStats next;
            std::string bigger = GenerateDocument(ask, docSeed, &next);
            if (bigger.size() > maxBytes)
                break;
            doc.swap(bigger);
            one = next;
        }
        if (stats)
            stats->push_back(one);
        docs.push_back(std::move(doc));
    }
    return docs;
}

namespace {

// The record's children in the order of its declared model.
const char* const kDtdFields[] = {"country", "city", "qty", "price", "title", "note", "phone",
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
    for (size_t i = 0; i < sizeof kDtdFields / sizeof kDtdFields[0]; ++i)
        dtd += std::string(i ? " | " : "") + kDtdFields[i];
    dtd += ")*>\n<!ATTLIST record id ID #REQUIRED updated CDATA #IMPLIED region CDATA #IMPLIED status "
           "(active | pending | deleted) 'active' rev NMTOKEN #IMPLIED>\n";
    for (const char* f : kDtdFields)
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
