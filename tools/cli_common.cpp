#include "cli_common.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli_args.h"
#include "cli_progress.h"

namespace {

bool g_strict = false;

// What a library status means to the user, in one place. Reading gives the codes meanings of
// their own: what is wrong with the file.
std::string status_message(int status, bool reading) {
    if (reading) {
        switch (status) {
            case ST_NO_MEMORY:
                return "too large: not enough memory to hold it";
            case ST_READ_ERROR:
                return "truncated: the file ends before its first image is complete";
            case ST_BAD_ARGUMENT:
                return "damaged: an image without any colour table";
            case ST_UNSUPPORTED:
                return "too large: an image beyond 2^31 bytes, or of width or height 0";
            case ST_BAD_FORMAT:
                return "damaged: the GIF block layout is broken";
            case ST_UNDECODABLE:
                return "damaged: image data that cannot be decoded";
            case ST_LIMIT_EXCEEDED:
                return "too large: beyond the reading limits (--max-pixels, --max-memory)";
        }
    }
    if (status == ST_NO_MEMORY) return "too large: not enough memory";
    return status_text(status);
}

}  // namespace

void set_strict(bool strict) {
    g_strict = strict;
}

int report_error(const std::string& file, const std::string& message) {
    std::fprintf(stderr, "qimg: %s: %s\n", file.c_str(), message.c_str());
    return kExitFailure;
}

int report_status(const std::string& file, const std::string& action, int status) {
    if (status == ST_CANCELLED) {
        std::fprintf(stderr, "qimg: %s: %s cancelled\n", file.c_str(), action.c_str());
        return kExitCancelled;
    }
    return report_error(file, action + " failed: " + status_message(status, action == "reading") +
                                  " (status " + std::to_string(status) + ")");
}

int report_usage(const std::string& message) {
    std::fprintf(stderr, "qimg: %s\nTry 'qimg --help'.\n", message.c_str());
    return kExitUsage;
}

bool has_extension(const std::string& path, const std::string& extension) {
    if (path.size() < extension.size()) return false;
    std::string tail = path.substr(path.size() - extension.size());
    std::transform(tail.begin(), tail.end(), tail.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return tail == extension;
}

bool sniff_input(const std::string& path, FileKind& kind) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        report_error(path, errno == ENOENT ? "does not exist" : std::strerror(errno));
        return false;
    }
    if (S_ISDIR(info.st_mode)) {
        report_error(path, "is a directory, not a file");
        return false;
    }
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) {
        report_error(path, std::string("cannot open: ") + std::strerror(errno));
        return false;
    }
    unsigned char head[8] = {};
    const size_t n = std::fread(head, 1, sizeof head, file);
    std::fclose(file);
    if (n == 0) {
        report_error(path, "is empty");
        return false;
    }
    static const unsigned char kPng[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    kind = FileKind::other;
    if (n >= 6 && std::memcmp(head, "GIF8", 4) == 0 && (head[4] == '7' || head[4] == '9') &&
        head[5] == 'a')
        kind = FileKind::gif;
    else if (n == 8 && std::memcmp(head, kPng, 8) == 0)
        kind = FileKind::png;
    return true;
}

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
        if (!parse_int(words[i], words[i + 1], 1, 2147483647, value, error)) return false;
        *target = value;
        words.erase(words.begin() + long(i), words.begin() + long(i) + 2);
        --i;
    }
    return true;
}

namespace {
// Standard input through the push reader, piece by piece as it arrives, into `animation`.
int read_standard_input(qGifAnimation& animation, const qGifReadOptions& options,
                        qIMonitor* monitor) {
    qGifPushReader reader;
    if (const int status = reader.begin(&animation, options, monitor); status != 0) return status;
    std::vector<unsigned char> piece(64 * 1024);
    while (!reader.finished()) {
        const size_t n = std::fread(piece.data(), 1, piece.size(), stdin);
        if (n == 0) break;
        reader.push(piece.data(), static_cast<int>(n));
    }
    return reader.end();
}
}  // namespace

int load_gif(const std::string& path, LoadedGif& gif) {
    FileKind kind = FileKind::gif;
    if (path != "-" && !sniff_input(path, kind)) return kExitFailure;
    if (kind != FileKind::gif)
        return report_error(path, "not a GIF file (it does not start with GIF87a or GIF89a)");
    qFileR file;
    if (path != "-" && !file.open(path.c_str())) return report_error(path, "cannot open");
    TerminalProgress progress("reading " + path);
    qGifReadOptions options;
    options.browser_rules = true;  // real files render as browsers show them
    options.max_screen_pixels = options.max_frame_pixels = read_limits().max_pixels;
    options.max_total_bytes = read_limits().max_memory_mb << 20;
    const int status = path == "-" ? read_standard_input(gif.animation, options, &progress)
                                   : gif.animation.read(&file, &progress, options);
    progress.finish();
    // The reader keeps the frames read before a stop; a stop asked for is still a stop.
    if (status == ST_CANCELLED || TerminalProgress::interrupted())
        return report_status(path, "reading", ST_CANCELLED);
    const int frames = gif.animation.num_frames();
    if (frames == 0) {
        if (status == 0) return report_error(path, "empty: the GIF holds no image");
        return report_status(path, "reading", status);
    }
    if (status != 0) {
        // Frames before the break are shown, as viewers do; --strict refuses the file.
        const std::string what =
            status == ST_READ_ERROR ? "truncated" : status_message(status, true);
        std::fprintf(stderr, "qimg: %s: %s %s: %d of the frames were read\n", path.c_str(),
                     g_strict ? "error:" : "warning:", what.c_str(), frames);
        if (g_strict) return kExitFailure;
    }
    // A screen declared empty takes the size of the first image.
    if (gif.animation.size().empty())
        gif.animation.set_screen_size(gif.animation.frame_rect().size());
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

int create_canvas(Canvas& canvas, qSize size, const std::string& file, const std::string& what) {
    if (canvas.create(size) == 0) return kExitOk;
    return report_error(file, "too large: " + what + " of " + std::to_string(size.width) + " x " +
                                  std::to_string(size.height) +
                                  " pixels is beyond the 1 GiB this program takes");
}
