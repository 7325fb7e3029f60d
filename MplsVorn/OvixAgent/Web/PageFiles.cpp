#include "Web/PageFiles.h"

namespace OvixAgent {

namespace {

// The files in page/, as numbers.
constexpr unsigned char indexHtml[] = {
#include <index.html.inc>
};
constexpr unsigned char pageCss[] = {
#include <page.css.inc>
};
constexpr unsigned char pageJs[] = {
#include <page.js.inc>
};

template <std::size_t size>
std::string_view textOf(const unsigned char (&bytes)[size]) noexcept {
    return {reinterpret_cast<const char*>(bytes), size};
}

} // namespace

const PageFile (&pageFiles() noexcept)[3] {
    static const PageFile files[]{{"/", "text/html; charset=utf-8", textOf(indexHtml)},
                                  {"/page.css", "text/css; charset=utf-8", textOf(pageCss)},
                                  {"/page.js", "text/javascript; charset=utf-8", textOf(pageJs)}};
    return files;
}

} // namespace OvixAgent
