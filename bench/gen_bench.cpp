// gen_bench - the time of XmlDocument::GenerateDTD against that of the parse
// that made the tree, and generation on trees built to be hard for it.
//
//   gen_bench [--size MB] [--repeat N] [--names N]
//
// 1. The records document of gendoc.h (MB = 1e6 bytes, default 100) is
//    decoded, then parsed with ParseString and GenerateDTD is run on the
//    parsed tree, alternately, N times (default 5) in the same run; best and
//    median of each, and their ratio. A ParseString on a document that holds
//    a tree first frees that tree, which the parse proper doesn't need, so
//    the tree is also cleared beforehand (Clear, timed apart) and the parse
//    alone is set against generation too. Beside wall-clock time, the
//    thread's CPU time is given: on a shared machine it leaves out the time
//    the thread waits for a core.
// 2. Worst cases, each at two sizes so that the growth shows: one element
//    name whose instances show that many distinct child shapes; a chain of
//    nested elements; one element with that many children. Then cases of
//    many distinct names (N, default 400000, and a quarter of it): children
//    of one element with that many names; that many names with a child in
//    common; mixed content with that many names; the middle group of one
//    model with that many names; one element with that many attribute
//    names; that many documents, each with a name of its own.
//
// Times are wall-clock (steady_clock) unless told to be CPU time.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <time.h>

#include "benchutil.h"
#include "gendoc.h"
#include "xmlapi.h"

namespace {

using ozmbench::Clock;
using ozmbench::Seconds;
using ozmbench::Timing;

double Time(const std::function<void()>& work) {
    auto t0 = Clock::now();
    work();
    return Seconds(t0, Clock::now());
}

double ThreadSeconds() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

// Wall-clock and thread CPU time of work.
void Time(const std::function<void()>& work, Timing& wall, Timing& cpu) {
    double c0 = ThreadSeconds();
    wall.runs.push_back(Time(work));
    cpu.runs.push_back(ThreadSeconds() - c0);
}

void Ratio(const char* what, const Timing& a, const Timing& b) {
    std::printf("  %-44s best %.3f, median %.3f\n", what, a.Best() / b.Best(), a.Median() / b.Median());
}

std::string Utf8(const UCChar* text) {
    std::string out;
    OzmGlob::WStringToString(UCString(text), out, csetUTF8);
    return out;
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

[[noreturn]] void Usage() {
    std::fprintf(stderr, "usage: gen_bench [--size MB] [--repeat N] [--names N]\n");
    std::exit(2);
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

// stem followed by the decimal digits of i.
UCString Named(const UCChar* stem, int i) {
    UCString s(stem);
    for (char c : std::to_string(i))
        s += UCChar(c);
    return s;
}

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
        XmlElement* e = Node(doc, Named(u"e", i).c_str());
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
        e->Child(Node(t.doc, Named(u"c", i).c_str()));
    }
}

void AttributeNamesTree(Trees& t, int n) {
    XmlElement* root = Node(t.doc, u"r");
    t.doc.RootElement(root);
    for (int i = 0; i < n; ++i)
        root->AddAttribute(Named(u"a", i).c_str(), u"v");
}

// n documents, each a root r with one child of a name of its own.
void DocumentsTrees(Trees& t, int n) {
    for (int i = 0; i < n; ++i) {
        t.others.push_back(std::make_unique<XmlDocument>());
        XmlDocument& doc = *t.others.back();
        XmlElement* root = Node(doc, u"r");
        doc.RootElement(root);
        root->Child(Node(doc, Named(u"e", i).c_str()));
    }
}

void WorstCase(const char* what, void (*build)(Trees&, int), int small, int large, int repeat) {
    double t[2];
    int sizes[2] = {small, large};
    for (int s = 0; s < 2; ++s) {
        Trees trees;
        build(trees, sizes[s]);
        XmlDocument& doc = trees.doc;
        Timing g;
        for (int r = 0; r < repeat; ++r)
            g.runs.push_back(Time([&] {
                if (!trees.Generate())
                    std::printf("    GenerateDTD gave false\n");
            }));
        t[s] = g.Best();
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

int main(int argc, char** argv) {
    double sizeMB = 100;
    int repeat = 5;
    int names = 400000;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--size" && i + 1 < argc) {
            sizeMB = std::atof(argv[++i]);
            if (!(sizeMB > 0))
                Usage();
        } else if (a == "--repeat" && i + 1 < argc) {
            repeat = std::atoi(argv[++i]);
            if (repeat < 1)
                Usage();
        } else if (a == "--names" && i + 1 < argc) {
            names = std::atoi(argv[++i]);
            if (names < 4)
                Usage();
        } else {
            Usage();
        }
    }

    ozmbench::GenStats gen;
    std::string bytes = ozmbench::GenerateDocument(size_t(sizeMB * 1e6), ozmbench::kDefaultSeed, &gen);
    UCString text;
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), text);
    std::printf("gen_bench\ninput: generated, seed 0x%llx, %zu bytes of UTF-8, %zu elements, %zu attributes\n",
                (unsigned long long)ozmbench::kDefaultSeed, bytes.size(), gen.elements, gen.attributes);
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
        if (result != errNone) {
            std::printf("PARSE FAILED: error %d at line %d: %s\n", int(result), doc.ErrorLine(),
                        Utf8(doc.ErrorMessage()).c_str());
            return 1;
        }
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
