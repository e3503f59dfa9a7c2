#include "cli_common.h"

#include <cstdio>
#include <cstring>

#include "cli_args.h"
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

ReadLimits& read_limits() {
    static ReadLimits limits;
    return limits;
}

bool take_limit_options(std::vector<std::string>& words, std::string& error) {
    for (size_t i = 0; i < words.size(); ++i) {
        int64_t* target = words[i] == "--max-pixels"   ? &read_limits().max_pixels
                          : words[i] == "--max-memory" ? &read_limits().max_memory_mb
                                                       : nullptr;
        if (target == nullptr) continue;
        int value = 0;
        if (i + 1 == words.size()) {
            error = words[i] + " needs a value";
            return false;
        }
        if (!parse_int(words[i + 1], 1, 2147483647, value, error)) {
            error = words[i] + ": " + error;
            return false;
        }
        *target = value;
        words.erase(words.begin() + long(i), words.begin() + long(i) + 2);
        --i;
    }
    return true;
}

namespace {
// Standard input through the push reader, piece by piece as it arrives; the proxy then holds
// what was read, under the same rules as a file.
int read_standard_input(qImageProxy& proxy, const qGifReadOptions& options, qIMonitor* monitor) {
    qGifPushReader reader;
    if (const int status = reader.begin(options, monitor); status != 0) return status;
    std::vector<unsigned char> piece(64 * 1024);
    while (!reader.finished()) {
        const size_t n = std::fread(piece.data(), 1, piece.size(), stdin);
        if (n == 0) break;
        reader.push(piece.data(), static_cast<int>(n));
    }
    return proxy.read_gif(&reader);
}
}  // namespace

int load_gif(const std::string& path, LoadedGif& gif) {
    // The library reports a stream without a usable screen as -1; say plainly what is wrong.
    if (path != "-" && !looks_like_gif(path))
        return report_error(path, "not a GIF file (no GIF87a or GIF89a signature)");
    TerminalProgress progress("reading " + path);
    qGifReadOptions options;
    options.browser_rules = true;  // real files render as browsers show them
    options.max_screen_pixels = options.max_frame_pixels = read_limits().max_pixels;
    options.max_total_bytes = read_limits().max_memory_mb << 20;
    const int status = path == "-" ? read_standard_input(gif.proxy, options, &progress)
                                   : gif.proxy.read_gif(path.c_str(), &progress, options);
    progress.finish();
    if (status == ST_LIMIT_EXCEEDED)
        return report_error(path,
                            "too large for the reading limits (see --max-pixels, "
                            "--max-memory)");
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
