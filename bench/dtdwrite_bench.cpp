// dtdwrite_bench - time of XmlDtd::Write for a large definition.
//
//   dtdwrite_bench [--elements N] [--repeat R]
//
// The definition has N elements (default 10,000), each with an attribute
// list of four definitions (CDATA with a default, an enumeration of three
// values, ID #REQUIRED, a fixed length), element content of a sequence of
// three names with a nested choice, every tenth element mixed content, and
// N / 10 entities. It is written with line breaks and escaping to a
// UCString and to a UTF-8 std::string (each fresh per run, and reused with
// its storage kept), then a content model nested 100,000 groups deep.
// Times are wall-clock (steady_clock), best of R runs (default 5), in ms.
// A fresh UCString of this size costs far more than the writing itself where
// the allocator hands its memory back between runs and page faults are dear:
// compare with the reused one, or run with
// GLIBC_TUNABLES=glibc.malloc.mmap_threshold=268435456:glibc.malloc.trim_threshold=268435456.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "xmlapi.h"

namespace {

using Clock = std::chrono::steady_clock;

UCString Num(const UCChar* stem, int i) {
    UCString s(stem);
    for (char c : std::to_string(i))
        s += UCChar(c);
    return s;
}

XmlContentPart Named(const UCString& name, int mod) {
    XmlContentPart p;
    p.Name(name.c_str());
    p.CountMod(mod);
    return p;
}

void Build(XmlDtd& d, int elements) {
    d.DocType(u"e0");
    for (int i = 0; i < elements / 10; ++i)
        d.AddEntity(Num(u"ent", i).c_str(), u"a value with <markup> & \"quotes\"");
    for (int i = 0; i < elements; ++i) {
        XmlElementDef* e = d.AddElement(Num(u"e", i).c_str());
        XmlContentPart top;
        if (i % 10 == 9) {
            e->Type(elemMixed);
            top.AddCP(Named(Num(u"e", (i + 1) % elements), countOne), true);
            top.AddCP(Named(Num(u"e", (i + 2) % elements), countOne), true);
            top.CountMod(countStar);
        } else {
            e->Type(elemChildren);
            XmlContentPart choice;
            choice.AddCP(Named(Num(u"e", (i + 3) % elements), countOne), true);
            choice.AddCP(Named(Num(u"e", (i + 4) % elements), countPlus), true);
            top.AddCP(Named(Num(u"e", (i + 1) % elements), countOptional), false);
            top.AddCP(choice, false);
            top.AddCP(Named(Num(u"e", (i + 2) % elements), countStar), false);
        }
        e->Contents(top);
        XmlAttrList* l = d.AddAttrList(e->Name());
        XmlAttDef* a = l->AddAttDef(u"title");
        a->Type(attCdata);
        a->DefType(defValue);
        a->DefVal(u"untitled");
        a = l->AddAttDef(u"kind");
        a->Type(attEnumerated);
        a->AddEnum(u"alpha");
        a->AddEnum(u"beta");
        a->AddEnum(u"gamma");
        a->DefType(defImplied);
        a = l->AddAttDef(u"id");
        a->Type(attId);
        a->DefType(defRequired);
        a = l->AddAttDef(u"length");
        a->Type(attCdata);
        a->DefType(defFixed);
        a->DefVal(Num(u"", i % 1000).c_str());
    }
}

double BestMs(int repeat, const std::function<void()>& run) {
    double best = 1e30;
    for (int i = 0; i < repeat; ++i) {
        Clock::time_point t0 = Clock::now();
        run();
        double ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
        if (ms < best)
            best = ms;
    }
    return best;
}

}  // namespace

int main(int argc, char** argv) {
    int elements = 10000, repeat = 5;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--elements"))
            elements = std::atoi(argv[i + 1]);
        else if (!std::strcmp(argv[i], "--repeat"))
            repeat = std::atoi(argv[i + 1]);
    }
    if (elements < 1 || repeat < 1) {
        std::fprintf(stderr, "usage: dtdwrite_bench [--elements N] [--repeat R]\n");
        return 2;
    }
    XmlDtd d;
    Build(d, elements);

    size_t units = 0, bytes = 0;
    UCString kept;
    std::string keptUtf;
    const double fresh = BestMs(repeat, [&] {
        UCString s;
        XmlOutputStream out;
        out.SetString(&s);
        d.Write(out, false, true, true);
        units = s.size();
    });
    const double reused = BestMs(repeat, [&] {
        kept.clear();
        XmlOutputStream out;
        out.SetString(&kept);
        d.Write(out, false, true, true);
    });
    const double freshUtf = BestMs(repeat, [&] {
        std::string s;
        XmlOutputStream out;
        out.SetUTFString(&s);
        d.Write(out, false, true, true);
        bytes = s.size();
    });
    const double reusedUtf = BestMs(repeat, [&] {
        keptUtf.clear();
        XmlOutputStream out;
        out.SetUTFString(&keptUtf);
        d.Write(out, false, true, true);
    });
    std::printf("%d elements, %d attribute lists, %d entities: %zu units, %zu UTF-8 bytes\n", d.ElementCount(),
                elements, elements / 10, units, bytes);
    std::printf("UCString, fresh        %8.2f ms\n", fresh);
    std::printf("UCString, reused       %8.2f ms\n", reused);
    std::printf("UTF-8 string, fresh    %8.2f ms\n", freshUtf);
    std::printf("UTF-8 string, reused   %8.2f ms\n", reusedUtf);

    // A model nested 100,000 groups deep, each group of two members.
    XmlDtd deep;
    XmlElementDef* e = deep.AddElement(u"e");
    e->Type(elemChildren);
    XmlContentPart* level = &e->Contents();
    for (int i = 0; i < 100000; ++i) {
        level->AddCP(XmlContentPart(), false);
        level->AddCP(Named(u"x", countOne), false);
        level = &(*level)[0];
    }
    level->Name(u"a");
    const double deepMs = BestMs(repeat, [&] {
        UCString s;
        XmlOutputStream out;
        out.SetString(&s);
        deep.Write(out, false, true, true);
    });
    std::printf("100,000 groups deep    %8.2f ms\n", deepMs);
    return 0;
}
