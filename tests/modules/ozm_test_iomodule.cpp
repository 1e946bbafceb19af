// An I/O module in a shared object, loaded by path in the tests. Reading
// serves the resource text, a few units per call; writing collects the
// units, which the tests fetch through OzmTestModuleOutput.
#include "ozmutil.h"

namespace {

UCString g_output;
int g_live = 0;

class EchoModule : public OzmIOModule {
public:
    EchoModule() { ++g_live; }
    ~EchoModule() override { --g_live; }

    BATCHERR Open(const UCChar* resource, const UCChar* options, short mode) override {
        m_text = resource;
        m_pos = 0;
        if (m_text == u"refuse") {
            m_error = u"echo module refuses '" + UCString(options) + u"'";
            return errOpenUri;
        }
        if (!(mode & 0x8000) && !(mode & 0x2000))
            g_output.clear();
        return errNone;
    }
    BATCHERR Close() override { return errNone; }
    BATCHERR Read(UCChar* buffer, size_t capacity, size_t& count) override {
        count = 0;
        while (count < capacity && count < 3 && m_pos < m_text.size())
            buffer[count++] = m_text[m_pos++];
        return count ? errNone : errSyntax;
    }
    BATCHERR Write(const UCChar* text, size_t count) override {
        g_output.append(text, count);
        return errNone;
    }
    const UCChar* LastErrorMessage() const override { return m_error.c_str(); }

private:
    UCString m_text;
    size_t m_pos = 0;
    UCString m_error;
};

}  // namespace

extern "C" OZM_API OzmIOModule* OzmCreateIOModule() { return new EchoModule; }
extern "C" OZM_API const UCChar* OzmTestModuleOutput() { return g_output.c_str(); }
extern "C" OZM_API int OzmTestModuleLive() { return g_live; }
