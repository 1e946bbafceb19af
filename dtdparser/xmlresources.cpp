// XmlResources: the policies for external resources, and the paths that a
// confined policy lets through.
#include "xmlresources.h"

#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <vector>

namespace {

std::string Narrow(const UCString& text) {
    std::string out;
    OzmGlob::WStringToString(text, out, OZM_CSET(0));
    return out;
}

UCString Wide(const std::string& text) {
    UCString out;
    OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(text.data()), text.size(), out);
    return out;
}

}  // namespace

// path made absolute against the working directory, with empty, "." and ".."
// steps taken out by the text alone: the file system is not asked.
std::string XmlResources::NormalisedPath(const std::string& path) {
    std::vector<std::string> steps;
    auto add = [&](const std::string& p) {
        size_t start = 0;
        while (start <= p.size()) {
            size_t slash = p.find('/', start);
            if (slash == std::string::npos)
                slash = p.size();
            const std::string step = p.substr(start, slash - start);
            if (step == "..") {
                if (!steps.empty())
                    steps.pop_back();
            } else if (!step.empty() && step != ".") {
                steps.push_back(step);
            }
            start = slash + 1;
        }
    };
    if (path.empty() || path[0] != '/') {
        char cwd[PATH_MAX];
        if (::getcwd(cwd, sizeof cwd))
            add(cwd);
    }
    add(path);
    std::string out;
    for (const std::string& step : steps)
        out += "/" + step;
    return out.empty() ? "/" : out;
}

XmlResources XmlResources::None() {
    XmlResources r;
    r.m_kind = resNone;
    return r;
}

XmlResources XmlResources::Confined(const UCChar* directory) {
    XmlResources r;
    r.m_kind = resConfined;
    const std::string normal = NormalisedPath(Narrow(directory ? directory : u""));
    r.m_directory = Wide(normal);
    char real[PATH_MAX];
    r.m_realDirectory = ::realpath(normal.c_str(), real) ? Wide(real) : r.m_directory;
    return r;
}

XmlResources XmlResources::Resolver(XmlResolver resolver) {
    XmlResources r;
    r.m_kind = resResolver;
    r.m_resolver = std::move(resolver);
    return r;
}

XmlResources XmlResources::Catalog(std::shared_ptr<const XmlCatalog> catalog, const XmlResources& otherwise) {
    XmlResources r = otherwise.Otherwise();
    r.m_otherwiseKind = r.m_kind;
    r.m_kind = resCatalog;
    r.m_catalog = std::move(catalog);
    return r;
}

XmlResources XmlResources::Otherwise() const {
    XmlResources r = *this;
    if (m_kind == resCatalog)
        r.m_kind = m_otherwiseKind;
    r.m_catalog.reset();
    return r;
}

bool XmlResources::Below(const std::string& path, std::string& rest, std::string& directory) const {
    for (const UCString* d : {&m_directory, &m_realDirectory}) {
        std::string dir = Narrow(*d);
        if (dir == "/")
            dir.clear();
        if (path.size() > dir.size() && path.compare(0, dir.size(), dir) == 0 && path[dir.size()] == '/') {
            rest = path.substr(dir.size() + 1);
            directory = dir.empty() ? "/" : dir;
            return true;
        }
    }
    return false;
}
