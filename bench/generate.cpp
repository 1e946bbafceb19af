// generate - the time of XmlDocument::GenerateDTD against that of the parse
// that made the tree, and generation on trees built to be hard for it.
//
//   ozmbench generate [--size MB] [--repeat N] [--names N]
//
// 1. The records document of gendoc.h (MB = 1e6 bytes, default 100) is
//    decoded, then parsed with ParseString and GenerateDTD is run on the
//    parsed tree, alternately, N times (default 5) in the same run; best and
//    median of each, and their ratio. A ParseString on a document that holds
//    a tree first frees that tree, which the parse proper doesn't need, so
//    the tree is also cleared beforehand (Clear, timed apart) and the parse
//    alone is set against generation too. Beside wall-clock time, the
//    thread's CPU time is given.
// 2. Worst cases, each at two sizes so that the growth shows: one element
//    name whose instances show that many distinct child shapes; a chain of
//    nested elements; one element with that many children. Then cases of
//    many distinct names (N, default 400000, and a quarter of it): children
//    of one element with that many names; that many names with a child in
//    common; mixed content with that many names; the middle group of one
//    model with that many names; one element with that many attribute
//    names; that many documents, each with a name of its own.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "harness.h"

namespace ozmbench {
namespace {

// Wall-clock and thread CPU time of work.
template <class Work>
void Time(Work&& work, Timing& wall, Timing& cpu) {
    const double c0 = ThreadSeconds();
    wall.Time(work);
    cpu.runs.push_back(ThreadSeconds() - c0);
}

void Ratio(const char* what, const Timing& a, const Timing& b) {
    std::printf("  %-44s best %.3f, median %.3f\n", what, a.Best() / b.Best(), a.Median() / b.Median());
}

// A content model in declaration notation, at most limit characters.
std::string Render(const XmlContentPart& p, size_t limit = 200) {
    std::string s = p.Type() == cpName ? Utf8(p.Name()) : "";
    if (p.Type() == cpSequence || p.Type() == cpChoice) {
        s = "(";
        for (int i = 0; i < p.Count() && s.size() < limit; ++i)
            s += (i ? (p.Type() == cpChoice ? "|" : ",") : "") + Render(p[i], limit);
        s += ")";
    }
    static const char* const mods[] = {"", "+", "*", "?"};
    return s + mods[p.CountMod() & 3];
}

std::string Model(const XmlElementDef& d) {
    switch (d.Type()) {
    case elemEmpty:
        return "EMPTY";
    case elemAny:
        return "ANY";
    case elemMixed: {
        std::string s = "(#PCDATA";
        for (int i = 0; d.Contents().Type() == cpChoice && i < d.Contents().Count(); ++i)
            s += "|" + Utf8(d.Contents()[i].Name());
        return s + (d.Contents().CountMod() == countStar ? ")*" : ")");
    }
    default:
        return Render(d.Contents());
    }
}

// Children of parent, appended in constant time each.
struct Appender {
    XmlElement* parent;
    XmlElement* last = nullptr;
    void Add(XmlElement* c) {
        if (last)
            last->InsertNext(c);
        else
            parent->Child(c);
        last = c;
    }
};

// A tree, or the trees of several documents, to generate from.
struct Trees {
    XmlDocument doc;
    std::vector<std::unique_ptr<XmlDocument>> others;
    bool Generate() {
        if (others.empty())
            return doc.GenerateDTD();
        std::vector<const XmlDocument*> trees;
        for (const auto& o : others)
            trees.push_back(o.get());
        return doc.GenerateDTD(trees);
    }
};

XmlElement* Node(XmlDocument& doc, const UCChar* name) {
    XmlElement* e = doc.NewElement();
    e->Name(name);
    return e;
}

// n instances of e under one root; instance i has 14 children whose names
// spell i in base 3 as steps to one of the three names other than the one
// before, so that no two instances have the same shape and no neighbours fold.
void ShapesTree(Trees& t, int n) {
    XmlDocument& doc = t.doc;
    static const UCChar* const names[] = {u"a", u"b", u"c", u"d"};
    XmlElement* root = Node(doc, u"r");
    doc.RootElement(root);
    Appender top{root};
    for (int i = 0; i < n; ++i) {
        XmlElement* e = Node(doc, u"e");
        top.Add(e);
        Appender kids{e};
        int prev = 0, v = i;
        for (int k = 0; k < 14; ++k, v /= 3) {
            prev = (prev + 1 + v % 3) % 4;
            kids.Add(Node(doc, names[prev]));
        }
    }
}

void DeepTree(Trees& t, int n) {
    XmlDocument& doc = t.doc;
    XmlElement* e = Node(doc, u"e");
    doc.RootElement(e);
    for (int i = 0; i < n; ++i, e = e->Child())
        e->Child(Node(doc, i % 2 ? u"e" : u"f"));
}

void WideTree(Trees& t, int n) {
    XmlDocument& doc = t.doc;
    static const UCChar* const names[] = {u"a", u"a", u"b", u"c"};
    XmlElement* root = Node(doc, u"r");
    doc.RootElement(root);
    Appender kids{root};
    for (int i = 0; i < n; ++i)
        kids.Add(Node(doc, names[i % 4]));
}

// Under one root r: n children named e0, e1, ...; with text in r when
// mixed, and each with a child named child unless that is null.
void NamedChildren(XmlDocument& doc, int n, bool mixed, const UCChar* child) {
    XmlElement* root = Node(doc, u"r");
    doc.RootElement(root);
    if (mixed)
        root->Data(u"t");
    Appender kids{root};
    for (int i = 0; i < n; ++i) {
        XmlElement* e = Node(doc, Numbered(u"e", i).c_str());
        kids.Add(e);
        if (child)
            e->Child(Node(doc, child));
    }
}

void NamesTree(Trees& t, int n) { NamedChildren(t.doc, n, false, nullptr); }
void CommonChildTree(Trees& t, int n) { NamedChildren(t.doc, n, false, u"z"); }
void MixedNamesTree(Trees& t, int n) { NamedChildren(t.doc, n, true, nullptr); }

// n instances of e, each with one child of a name of its own: a middle
// group of n names.
void MiddleNamesTree(Trees& t, int n) {
    XmlElement* root = Node(t.doc, u"r");
    t.doc.RootElement(root);
    Appender kids{root};
    for (int i = 0; i < n; ++i) {
        XmlElement* e = Node(t.doc, u"e");
        kids.Add(e);
        e->Child(Node(t.doc, Numbered(u"c", i).c_str()));
    }
}

void AttributeNamesTree(Trees& t, int n) {
    XmlElement* root = Node(t.doc, u"r");
    t.doc.RootElement(root);
    for (int i = 0; i < n; ++i)
        root->AddAttribute(Numbered(u"a", i).c_str(), u"v");
}

// n documents, each a root r with one child of a name of its own.
void DocumentsTrees(Trees& t, int n) {
    for (int i = 0; i < n; ++i) {
        t.others.push_back(std::make_unique<XmlDocument>());
        XmlDocument& doc = *t.others.back();
        XmlElement* root = Node(doc, u"r");
        doc.RootElement(root);
        root->Child(Node(doc, Numbered(u"e", i).c_str()));
    }
}

void WorstCase(const char* what, void (*build)(Trees&, int), int small, int large, int repeat) {
    double t[2];
    int sizes[2] = {small, large};
    for (int s = 0; s < 2; ++s) {
        Trees trees;
        build(trees, sizes[s]);
        XmlDocument& doc = trees.doc;
        t[s] = Repeat(repeat, [&] {
                   if (!trees.Generate())
                       std::printf("    GenerateDTD gave false\n");
               }).Best();
        std::printf("  %-26s n = %8d  GenerateDTD best %8.4f s  (%6.1f ns per unit of n)\n", what, sizes[s], t[s],
                    t[s] * 1e9 / sizes[s]);
        if (s == 1) {
            const XmlElementDef* d = doc.GetDTD().ElementAt(doc.GetDTD().ElementCount() > 1 ? 1 : 0);
            std::string m = Model(*d);
            std::printf("  %-26s model of %s: %s\n", "", Utf8(d->Name()).c_str(),
                        m.size() > 100 ? (m.substr(0, 100) + "...").c_str() : m.c_str());
        }
    }
    std::printf("  %-26s time ratio %.2f for size ratio %.2f\n\n", "", t[1] / t[0], double(large) / small);
}

}  // namespace

int GenerateCommand(int argc, char** argv) {
    double sizeMB = 100;
    int repeat = 5, names = 400000;
    ParseOptions(argc, argv, 1, {Number("--size", sizeMB), Number("--repeat", repeat), Number("--names", names, 4)});

    GenStats gen;
    const std::string bytes = GenerateDocument(size_t(sizeMB * 1e6), kDefaultSeed, &gen);
    const UCString text = Decode(bytes);
    std::printf("ozmbench generate\ninput: generated, seed 0x%llx, %zu bytes of UTF-8, %zu elements, %zu attributes\n",
                (unsigned long long)kDefaultSeed, bytes.size(), gen.elements, gen.attributes);
    std::printf("repeats: %d, parse and generation alternating on one document object\n\n", repeat);

    XmlDocument doc;
    Timing parse, generate, clear, alone, parseCpu, generateCpu, clearCpu, aloneCpu;
    for (int r = 0; r < 2 * repeat; ++r) {
        // Even rounds parse over the tree of the round before, odd rounds
        // into a cleared document.
        BATCHERR result = errNone;
        auto work = [&] { result = doc.ParseString(text, false, false); };
        if (r % 2 == 0) {
            Time(work, parse, parseCpu);
        } else {
            Time([&] { doc.Clear(); }, clear, clearCpu);
            Time(work, alone, aloneCpu);
        }
        CheckParse(doc, result);
        Time([&] { doc.GenerateDTD(); }, generate, generateCpu);
    }
    std::printf("Records document (GenerateDTD after every parse, %d runs of it)\n", 2 * repeat);
    std::printf("                                  wall best   median      CPU best   median\n");
    auto line = [](const char* what, const Timing& w, const Timing& c) {
        std::printf("  %-30s %8.4f s %8.4f s    %8.4f s %8.4f s\n", what, w.Best(), w.Median(), c.Best(), c.Median());
    };
    line("ParseString over a tree", parse, parseCpu);
    line("Clear of that tree", clear, clearCpu);
    line("ParseString after Clear", alone, aloneCpu);
    line("GenerateDTD", generate, generateCpu);
    std::printf("  GenerateDTD / ParseString (the target is at most 0.5):\n");
    Ratio("wall, ParseString over a tree", generate, parse);
    Ratio("wall, ParseString after Clear", generate, alone);
    Ratio("CPU, ParseString over a tree", generateCpu, parseCpu);
    Ratio("CPU, ParseString after Clear", generateCpu, aloneCpu);
    std::printf("\n");

    const XmlDtd& dtd = doc.GetDTD();
    std::printf("  generated: document type %s, %d element definitions\n", Utf8(dtd.DocType().c_str()).c_str(),
                dtd.ElementCount());
    for (int i = 0; i < dtd.ElementCount(); ++i) {
        const XmlElementDef* d = dtd.ElementAt(i);
        std::string atts;
        if (const XmlAttrList* l = dtd.FindAttrList(d->Name()))
            for (int k = 0; k < l->DefCount(); ++k) {
                const XmlAttDef* a = l->GetAttDef(k);
                atts += " " + Utf8(a->Name()) + (a->Type() == attCdata ? "=CDATA" : "=enum") + "(" +
                        std::to_string(a->EnumCount()) + " values, max " + std::to_string(a->MaxLen()) + ")" +
                        (a->DefType() == defFixed ? " #FIXED " + Utf8(a->DefVal()) : "");
            }
        std::printf("    %-10s %s%s\n", Utf8(d->Name()).c_str(), Model(*d).c_str(), atts.c_str());
    }

    std::printf("\nWorst cases (caller-built trees)\n");
    WorstCase("distinct child shapes", ShapesTree, 50000, 200000, repeat);
    WorstCase("chain of nested elements", DeepTree, 250000, 1000000, repeat);
    WorstCase("children of one element", WideTree, 250000, 1000000, repeat);
    WorstCase("distinct names", NamesTree, names / 4, names, repeat);
    WorstCase("names, a child in common", CommonChildTree, names / 4, names, repeat);
    WorstCase("mixed content of names", MixedNamesTree, names / 4, names, repeat);
    WorstCase("middle group of names", MiddleNamesTree, names / 4, names, repeat);
    WorstCase("attribute names", AttributeNamesTree, names / 4, names, repeat);
    WorstCase("documents", DocumentsTrees, names / 4, names, repeat);
    return 0;
}

}  // namespace ozmbench
