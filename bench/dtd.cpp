// dtd, dtdwrite - the cost of definitions, read and written.
//
//   ozmbench dtd [--size MB] [--dtd-size MB] [--repeat N]
//   ozmbench dtd --once doc|doc-ignore|doc-refs|subset|modules [--size MB] [--dtd-size MB]
//   ozmbench dtdwrite [--elements N] [--repeat R]
//
// dtd: a document parsed against its internal subset (lengths recorded)
// beside the same document with the subset read and dropped (ignoreDtd), the
// same with entity references in content, a definition of about 1 MB read
// as an internal subset, and the same definition as modules read by
// ParseExternalDTD; median of N runs (default 5). --once parses one input
// once in the counted region of harness.h (bench/dtd_callgrind.sh runs all
// five and prints instructions per byte).
//
// dtdwrite: XmlDtd::Write of a definition of N elements (default 10,000),
// each with an attribute list of four definitions (CDATA with a default, an
// enumeration of three values, ID #REQUIRED, a fixed length), element
// content of a sequence of three names with a nested choice, every tenth
// element mixed content, and N / 10 entities. It is written with line
// breaks and escaping to a UCString and to a UTF-8 std::string (each fresh
// per run, and reused with its storage kept), then a content model nested
// 100,000 groups deep. Best of R runs (default 5), in ms. A fresh UCString
// of this size costs far more than the writing itself where the allocator
// hands its memory back between runs and page faults are dear: compare with
// the reused one, or run with
// GLIBC_TUNABLES=glibc.malloc.mmap_threshold=268435456:glibc.malloc.trim_threshold=268435456.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "harness.h"

namespace ozmbench {
namespace {

struct Input {
    std::string name;
    std::string bytes;  // UTF-8, all files together for the modules
    UCString text;      // decoded, for ParseString
    bool ignoreDtd = false;
    std::unique_ptr<TempDir> dir;  // for the modules: the driver and its modules
    UCString driver;               // the path of the driver
};

Input Make(const std::string& name, double sizeMB, double dtdMB) {
    Input in;
    in.name = name;
    const size_t size = size_t(sizeMB * 1e6), dtdSize = size_t(dtdMB * 1e6);
    if (name == "doc" || name == "doc-ignore" || name == "doc-refs") {
        in.bytes = GenerateDocumentWithDtd(size, name == "doc-refs");
    } else if (name == "subset") {
        in.bytes = GenerateDtdDocument(dtdSize, 500);
    } else if (name == "modules") {
        const std::vector<std::string> files = GenerateDtdModules(dtdSize, 500, 10);
        in.dir = std::make_unique<TempDir>();
        for (size_t i = 0; i < files.size(); ++i) {
            const std::string path = in.dir->File(i ? "mod" + std::to_string(i) + ".mod" : "driver.dtd");
            if (!WriteFile(path, files[i]))
                Fail("cannot write " + path);
            in.bytes += files[i];
        }
        in.driver = Decode(in.dir->Path() + "/driver.dtd");
        return in;
    } else {
        Usage("dtd");
    }
    in.ignoreDtd = name == "doc-ignore";
    Decode(in.bytes, in.text);
    return in;
}

BATCHERR Parse(const Input& in, XmlDocument& doc) {
    if (!in.driver.empty()) {
        // Bare module names resolve against the directory of the last file
        // parsed, which is the driver's.
        doc.ParseFile(in.driver.c_str(), false, true);
        return doc.ParseExternalDTD(in.driver.c_str());
    }
    return doc.ParseString(in.text, false, in.ignoreDtd);
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
        d.AddEntity(Numbered(u"ent", i).c_str(), u"a value with <markup> & \"quotes\"");
    for (int i = 0; i < elements; ++i) {
        XmlElementDef* e = d.AddElement(Numbered(u"e", i).c_str());
        XmlContentPart top;
        if (i % 10 == 9) {
            e->Type(elemMixed);
            top.AddCP(Named(Numbered(u"e", (i + 1) % elements), countOne), true);
            top.AddCP(Named(Numbered(u"e", (i + 2) % elements), countOne), true);
            top.CountMod(countStar);
        } else {
            e->Type(elemChildren);
            XmlContentPart choice;
            choice.AddCP(Named(Numbered(u"e", (i + 3) % elements), countOne), true);
            choice.AddCP(Named(Numbered(u"e", (i + 4) % elements), countPlus), true);
            top.AddCP(Named(Numbered(u"e", (i + 1) % elements), countOptional), false);
            top.AddCP(choice, false);
            top.AddCP(Named(Numbered(u"e", (i + 2) % elements), countStar), false);
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
        a->DefVal(Numbered(u"", i % 1000).c_str());
    }
}

}  // namespace

int DtdCommand(int argc, char** argv) {
    double sizeMB = 5, dtdMB = 1;
    int repeat = 5;
    std::string once;
    ParseOptions(argc, argv, 1,
                 {Number("--size", sizeMB), Number("--dtd-size", dtdMB), Number("--repeat", repeat),
                  Text("--once", once)});
    if (!once.empty()) {
        const Input in = Make(once, sizeMB, dtdMB);
        XmlDocument doc;
        if (!in.driver.empty())
            doc.ParseFile(in.driver.c_str(), false, true);
        BATCHERR result = errNone;
        auto work = [&] { result = Parse(in, doc); };
        Region(work);
        CheckParse(doc, result, in.name.c_str());
        std::printf("utf8 bytes: %zu\nelement definitions: %d\n", in.bytes.size(), doc.GetDTD().ElementCount());
        return 0;
    }
    std::printf("ozmbench dtd: document %.1f MB, definition %.1f MB, median of %d runs\n", sizeMB, dtdMB, repeat);
    for (const char* name : {"doc", "doc-ignore", "doc-refs", "subset", "modules"}) {
        const Input in = Make(name, sizeMB, dtdMB);
        std::unique_ptr<XmlDocument> doc;
        const Timing t = Repeat(repeat, [&] { CheckParse(*doc, Parse(in, *doc), name); }, [&] {
            doc.reset();
            doc = std::make_unique<XmlDocument>();
        });
        std::printf("  %-11s %9zu bytes  %5d element definitions  %8.2f MB/s  (%.4f s)\n", name, in.bytes.size(),
                    doc->GetDTD().ElementCount(),
                    Rate(in.bytes.size(), t.Median()), t.Median());
    }
    return 0;
}

int DtdWriteCommand(int argc, char** argv) {
    int elements = 10000, repeat = 5;
    ParseOptions(argc, argv, 1, {Number("--elements", elements), Number("--repeat", repeat)});
    XmlDtd d;
    Build(d, elements);

    size_t units = 0, bytes = 0;
    UCString kept;
    std::string keptUtf;
    auto write = [&](XmlOutputStream& out) { d.Write(out, false, true, true); };
    const Timing fresh = Repeat(repeat, [&] {
        UCString s;
        XmlOutputStream out;
        out.SetString(&s);
        write(out);
        units = s.size();
    });
    const Timing reused = Repeat(repeat, [&] {
        kept.clear();
        XmlOutputStream out;
        out.SetString(&kept);
        write(out);
    });
    const Timing freshUtf = Repeat(repeat, [&] {
        std::string s;
        XmlOutputStream out;
        out.SetUTFString(&s);
        write(out);
        bytes = s.size();
    });
    const Timing reusedUtf = Repeat(repeat, [&] {
        keptUtf.clear();
        XmlOutputStream out;
        out.SetUTFString(&keptUtf);
        write(out);
    });
    std::printf("%d elements, %d attribute lists, %d entities: %zu units, %zu UTF-8 bytes\n", d.ElementCount(),
                elements, elements / 10, units, bytes);
    std::printf("UCString, fresh        %8.2f ms\n", fresh.Best() * 1e3);
    std::printf("UCString, reused       %8.2f ms\n", reused.Best() * 1e3);
    std::printf("UTF-8 string, fresh    %8.2f ms\n", freshUtf.Best() * 1e3);
    std::printf("UTF-8 string, reused   %8.2f ms\n", reusedUtf.Best() * 1e3);

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
    const Timing deepT = Repeat(repeat, [&] {
        UCString s;
        XmlOutputStream out;
        out.SetString(&s);
        deep.Write(out, false, true, true);
    });
    std::printf("100,000 groups deep    %8.2f ms\n", deepT.Best() * 1e3);
    return 0;
}

}  // namespace ozmbench
