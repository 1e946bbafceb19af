// ParseBytes: the same outcome as ParseFile on the same bytes (every parse
// table of the suite checks that through CheckParses; here the shipped
// documents and the edges of the decoding windows), its own bad input, and
// the memory a re-used document keeps between parses.
#include <thread>

#include "test_alloc.h"
#include "test_util.h"

namespace {

namespace fs = std::filesystem;

const fs::path kRoot = fs::path(__FILE__).parent_path().parent_path().parent_path();

std::string ReadAll(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

TEST(ParseBytesTest, EveryShippedDocumentAsItsFile) {
    int seen = 0;
    for (const char* dir : {"fuzz/seeds", "fuzz/regressions/parse_file", "fuzz/files", "examples/samples"}) {
        for (const auto& entry : fs::directory_iterator(kRoot / dir)) {
            SCOPED_TRACE(entry.path().string());
            ExpectBytesAsFile(ReadAll(entry.path()), entry.path().string());
            ++seen;
        }
    }
    EXPECT_GE(seen, 16);
}

// The bytes arrive in windows of 64 KiB as a file's reads do: a character,
// an invalid byte or an error on either side of a window's edge, in every
// form the decoder reads.
TEST(ParseBytesTest, AroundTheEdgesOfTheWindows) {
    struct Form {
        const char* declaration;
        std::string character;  // one character in the form's bytes
        bool utf16;
    };
    const Form forms[] = {
        {"", "\xC3\xA9", false},
        {"", "\xE2\x80\xA8", false},
        {"", "\xF0\x9F\x98\x80", false},
        {"", "\xC3", false},  // cut off: invalid
        {"<?xml version='1.0' encoding='Shift_JIS'?>", "\x82\xA0", false},
        {"<?xml version='1.0' encoding='windows-1251'?>", "\xCF", false},
        {"", "\x3D\xD8\x00\xDE", true},
    };
    const size_t kWindow = 65536;
    for (const Form& form : forms) {
        for (size_t before = kWindow - 6; before <= kWindow + 2; ++before) {
            for (const char* tail : {"</a>", "<</a>"}) {
                std::string head = std::string(form.declaration) + "<a>";
                std::string bytes;
                if (form.utf16) {
                    bytes = "\xFF\xFE";
                    for (char c : head)
                        bytes += std::string{c, 0};
                    while (bytes.size() + 2 <= before)
                        bytes += std::string("x\0", 2);
                    bytes += form.character;
                    for (const char* t = tail; *t; ++t)
                        bytes += std::string{*t, 0};
                } else {
                    bytes = head + std::string(before - head.size(), 'x') + form.character + tail;
                }
                SCOPED_TRACE(testing::Message() << form.declaration << " " << before << " " << tail);
                ExpectBytesAsFile(bytes);
            }
        }
    }
    // A declaration longer than the first window.
    ExpectBytesAsFile("<?xml version='1.0'" + std::string(kWindow, ' ') + "encoding='windows-1251'?><a>\xCF</a>");
}

TEST(ParseBytesTest, OwnBadInputAndBaseDirectory) {
    XmlDocument doc;
    EXPECT_EQ(doc.ParseBytes(nullptr, 3), errOpenSource);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Unable to read the bytes: no data");
    ExpectBytesAsFile("");

    TempDir dir;
    dir.Write("ext.dtd", "<!ELEMENT r (#PCDATA)><!ENTITY e 'from the subset'>");
    const std::string text = "<!DOCTYPE r SYSTEM 'ext.dtd'><r>&e;</r>";
    for (const std::string& base : {dir.Dir(), dir.Dir() + "/"}) {
        EXPECT_EQ(doc.ParseBytes(text.data(), text.size(), false, false, U(base).c_str()), errNone);
        EXPECT_EQ(Tree(doc), u"r{from the subset}");
    }
    // Without a directory the name is looked for in the working directory.
    EXPECT_EQ(doc.ParseBytes(text.data(), text.size()), errOpenUri);
    EXPECT_EQ(Str(doc.ErrorMessage()), u"Unable to open URI 'ext.dtd'");
}

// A document of count elements, each with a text of length units.
std::string Texts(int count, size_t length) {
    std::string s = "<r>";
    for (int i = 0; i < count; ++i)
        s += "<t>" + std::string(length, char('a' + i % 26)) + "</t>";
    return s + "</r>";
}

// Parsed again, a document takes what the last parse used: the count of
// allocations does not grow with the size of the text or the number of
// slabs. What is kept is what the last parse used, and Clear gives it back.
TEST(ParseBytesTest, ReusedDocumentKeepsWhatTheLastParseUsed) {
    auto allocations = [](XmlDocument& doc, const std::string& bytes) {
        const uint64_t before = TestAlloc::Count();
        EXPECT_EQ(doc.ParseBytes(bytes.data(), bytes.size()), errNone);
        return TestAlloc::Count() - before;
    };
    const std::string small = Texts(10, 40), large = Texts(5000, 300), huge = Texts(3, 30000);
    XmlDocument doc;
    for (const std::string* bytes : {&small, &large, &huge}) {
        const uint64_t first = allocations(doc, *bytes);
        const uint64_t again = allocations(doc, *bytes);
        EXPECT_LT(again, 4u) << bytes->size();
        EXPECT_LE(again, first);
    }
    // After the large document, a small one: the chunks of the large text go.
    const size_t start = TestAlloc::HeldBytes();
    XmlDocument fresh;
    allocations(fresh, small);
    const size_t smallHeld = TestAlloc::HeldBytes() - start;
    const size_t second = TestAlloc::HeldBytes();
    XmlDocument reused;
    allocations(reused, large);
    allocations(reused, small);
    EXPECT_LE(TestAlloc::HeldBytes() - second, smallHeld + 1024);
    const size_t beforeClear = TestAlloc::HeldBytes();
    doc.Clear();
    EXPECT_LT(TestAlloc::HeldBytes(), beforeClear);
    EXPECT_EQ(doc.RootElement(), nullptr);
    allocations(doc, small);
    EXPECT_EQ(Tree(doc).substr(0, 10), u"r{}(t{aaaa");
}

// A new document made after one went takes the blocks that one gave back:
// its parse allocates no more than a re-used document's, and what the
// process keeps after a large document and then a small one went is what the
// small one held. Documents on two threads share the kept blocks safely.
TEST(ParseBytesTest, NewDocumentsTakeWhatTheLastOneGaveBack) {
    const std::string small = Texts(10, 40), large = Texts(5000, 300);
    auto parseNew = [](const std::string& bytes) {
        XmlDocument doc;
        const uint64_t before = TestAlloc::Count();
        EXPECT_EQ(doc.ParseBytes(bytes.data(), bytes.size()), errNone);
        return TestAlloc::Count() - before;
    };
    parseNew(large);
    EXPECT_LT(parseNew(large), 40u);  // 5,000 elements, 16 KiB of text a slab
    const size_t start = TestAlloc::HeldBytes();
    parseNew(small);
    EXPECT_LT(TestAlloc::HeldBytes(), start);
    EXPECT_LE(TestAlloc::HeldBytes() + 65536 * 2, start);

    XmlDocument one;
    one.ParseBytes(small.data(), small.size());
    const UCString smallTree = Tree(one);
    one.ParseBytes(large.data(), large.size());
    const UCString largeTree = Tree(one);
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 40; ++i) {
                XmlDocument doc;
                const std::string& bytes = i % 3 ? small : large;
                EXPECT_EQ(doc.ParseBytes(bytes.data(), bytes.size()), errNone);
                EXPECT_TRUE(Tree(doc) == (i % 3 ? smallTree : largeTree));
            }
        });
    for (std::thread& t : threads)
        t.join();
}

}  // namespace
