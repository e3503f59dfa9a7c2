#include "cli_common.h"

#include <cstdio>
#include <cstring>

#include "cli_progress.h"

int report_error(const std::string& file, const std::string& message) {
    std::fprintf(stderr, "qimg: %s: %s\n", file.c_str(), message.c_str());
    return kExitFailure;
}

int report_status(const std::string& file, const std::string& action, int status) {
    if (status == 1) {
        std::fprintf(stderr, "qimg: %s: %s cancelled\n", file.c_str(), action.c_str());
        return kExitCancelled;
    }
    std::fprintf(stderr, "qimg: %s: %s failed: %s (status %d)\n", file.c_str(), action.c_str(),
                 status_text(status), status);
    return kExitFailure;
}

int report_usage(const std::string& message) {
    std::fprintf(stderr, "qimg: %s\nTry 'qimg --help'.\n", message.c_str());
    return kExitUsage;
}

namespace {
// Whether the file starts with a GIF signature; a file that cannot be read counts as one, so
// that the library reports why it cannot be opened.
bool looks_like_gif(const std::string& path) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return true;
    char signature[6] = {};
    const size_t n = std::fread(signature, 1, sizeof signature, file);
    std::fclose(file);
    return n == sizeof signature && std::memcmp(signature, "GIF8", 4) == 0 &&
           (signature[4] == '7' || signature[4] == '9') && signature[5] == 'a';
}
}  // namespace

int load_gif(const std::string& path, LoadedGif& gif) {
    // The library reports a stream without a usable screen as -1; say plainly what is wrong.
    if (!looks_like_gif(path))
        return report_error(path, "not a GIF file (no GIF87a or GIF89a signature)");
    TerminalProgress progress("reading " + path);
    qGifReadOptions options;
    options.browser_rules = true;  // real files render as browsers show them
    const int status = gif.proxy.read_gif(path.c_str(), &progress, options);
    progress.finish();
    if (status != 0) return report_status(path, "reading", status);
    gif.animation = gif.proxy.animation();
    if (!gif.animation) return report_error(path, "no animation after reading");
    return kExitOk;
}

int Canvas::create(qSize canvas_size) {
    stride = row_bytes(canvas_size.width, PT_BGRA32);
    if (stride <= 0 || canvas_size.height <= 0 ||
        static_cast<long long>(stride) * canvas_size.height > (1LL << 30)) {
        return -6;
    }
    size = canvas_size;
    pixels.assign(static_cast<size_t>(stride) * static_cast<size_t>(canvas_size.height), 0);
    return view.Bind(pixels.data(), size, stride, PT_BGRA32);
}
