// qimg encode FRAME.png... -o OUT.gif [--delay MS] [--loop N] [--colors N] [--dither]
//                                     [--palettes shared|local|auto]
// qimg resave IN.gif -o OUT.gif [--delay MS] [--loop N] [--optimize]
//
// Every GIF goes first to a temporary file beside the target, which is renamed into place only
// once complete: an interrupted or failed run leaves the target as it was.
#include "cli_gif_write.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "cli_args.h"
#include "cli_common.h"
#include "cli_output.h"
#include "cli_progress.h"
#include "png_io.h"

namespace {

// The GIF writer's byte sink over the stream that write_output hands out.
int to_stream(void* file, const void* data, int count) {
    return static_cast<int>(
        std::fwrite(data, 1, static_cast<size_t>(count), static_cast<std::FILE*>(file)));
}

// A GIF written through `write` to `target` as every output is written (see write_output).
int write_gif(const std::string& target, const std::function<int(qIFileW*)>& write) {
    return write_output(target, [&](std::FILE* file) {
        qCallbackW sink(to_stream, file);
        return write(&sink);
    });
}

struct WriteOptions {
    std::vector<std::string> inputs;
    std::string output;
    int delay = -1;  // hundredths; -1 keeps (resave) or 10 (encode)
    int loop = -2;   // passes as the library counts them; -2: not given
    int colors = 256;
    bool dither = false;
    int palettes = PM_SHARED;
    bool optimize = false;
};

// The options of both commands; `encode` tells which ones exist.
int parse(ArgList& args, bool encode, WriteOptions& o) {
    std::string error, value;
    const char* name = encode ? "encode" : "resave";
    while (!args.empty()) {
        const std::string word = args.take();
        int number = 0;
        if (word == "-o" || word == "--output") {
            if (!args.take_value(word, o.output, error)) return report_usage(error);
        } else if (word == "--delay") {
            if (!args.take_value(word, value, error) ||
                !parse_int(word, value, 0, 655350, number, error))
                return report_usage(error);
            o.delay = (number + 5) / 10;  // the format stores hundredths of a second
        } else if (word == "--loop") {
            // "play N times", 0 for without end, as the info command reports it.
            if (!args.take_value(word, value, error) ||
                !parse_int(word, value, 0, 65536, number, error))
                return report_usage(error);
            o.loop = number == 0 ? -1 : number;
        } else if (word == "--colors" && encode) {
            if (!args.take_value(word, value, error) ||
                !parse_int(word, value, 2, 256, o.colors, error))
                return report_usage(error);
        } else if (word == "--dither" && encode) {
            o.dither = true;
        } else if (word == "--palettes" && encode) {
            if (!args.take_value(word, value, error)) return report_usage(error);
            const char* modes[] = {"shared", "local", "auto"};
            const auto* mode = std::find(std::begin(modes), std::end(modes), value);
            if (mode == std::end(modes)) {
                return report_usage("--palettes takes shared, local or auto, not '" + value + "'");
            }
            o.palettes = static_cast<int>(mode - std::begin(modes));
        } else if (word == "--optimize" && !encode) {
            o.optimize = true;
        } else if (word.size() > 1 && word[0] == '-') {
            return report_usage(std::string(name) + ": unknown option '" + word + "'");
        } else {
            o.inputs.push_back(word);
        }
    }
    if (o.inputs.empty() || o.output.empty()) {
        return report_usage(encode ? "encode needs FRAME.png... and -o OUT.gif"
                                   : "resave needs IN.gif and -o OUT.gif");
    }
    if (!encode && o.inputs.size() > 1) return report_usage("resave: one input file only");
    if (!has_extension(o.output, ".gif") && !is_standard_output(o.output)) {
        return report_usage(std::string(name) + ": the output must be a .gif file");
    }
    return kExitOk;
}

}  // namespace

int write_indexed_gif(const std::string& path, const qIIndexImage& image, qIMonitor* monitor) {
    const qIColormap* map = image.colormap();
    if (map == nullptr) return report_error(path, "no colour map to write");
    return write_gif(path, [&](qIFileW* sink) {
        qGifWriter writer;
        qGifControl control;
        control.transparent = image.min_t_index();
        int rc = writer.begin(sink, image.size(), map, 0, 1);
        if (rc == 0) {
            rc = writer.add_image(&image, qPoint(), nullptr,
                                  control.transparent >= 0 ? &control : nullptr, false, monitor);
        }
        return rc == 0 ? writer.finish() : rc;
    });
}

int command_encode(ArgList& args) {
    WriteOptions o;
    if (const int status = parse(args, true, o); status != kExitOk) return status;

    std::vector<std::unique_ptr<qDirectImage>> pictures;
    std::vector<const qIImageBuffer*> frames;
    for (const std::string& input : o.inputs) {
        PngPicture png;
        std::string error;
        FileKind kind;
        if (!sniff_input(input, kind)) return kExitFailure;
        if (kind != FileKind::png) return report_error(input, "not a PNG file");
        if (!read_png(input, png, error)) return report_error(input, error);
        if (TerminalProgress::interrupted()) return report_status(input, "reading", ST_CANCELLED);
        if (!frames.empty() && !(qSize(png.width, png.height) == frames.front()->size())) {
            return report_error(input, "frames differ in size from the first one");
        }
        auto image = std::make_unique<qDirectImage>();
        const int status = image->Create_buffer(qSize(png.width, png.height), PT_BGRA32, nullptr);
        if (status != 0) return report_status(input, "loading", status);
        for (int y = 0; y < png.height; ++y) {
            std::memcpy(image->pixel_address(y, 0),
                        png.pixels.data() + static_cast<size_t>(y) * png.stride(),
                        static_cast<size_t>(png.stride()));
        }
        frames.push_back(image.get());
        pictures.push_back(std::move(image));
    }
    qGifEncodeOptions options;
    options.colors = o.colors;
    options.dither = o.dither;
    options.palettes = o.palettes;
    options.loop_count = o.loop == -2 ? -1 : o.loop;
    const std::vector<int> delays(frames.size(), o.delay < 0 ? 10 : o.delay);

    TerminalProgress progress("encoding " + o.output);
    const int status = write_gif(o.output, [&](qIFileW* sink) {
        return qGifEncoder::encode_frames(frames.data(), delays.data(),
                                          static_cast<int>(frames.size()), options, sink,
                                          &progress);
    });
    progress.finish();
    if (status != kExitOk) return status;
    std::fprintf(summary_stream(o.output), "%zu frame%s -> %s\n", frames.size(),
                 frames.size() == 1 ? "" : "s", o.output.c_str());
    return kExitOk;
}

int command_resave(ArgList& args) {
    WriteOptions o;
    if (const int status = parse(args, false, o); status != kExitOk) return status;
    LoadedGif gif;
    if (const int status = load_gif(o.inputs.front(), gif); status != kExitOk) return status;
    qGifAnimation* animation = &gif.animation;

    bool recut = false;
    TerminalProgress progress("writing " + o.output);
    const int status = write_gif(o.output, [&](qIFileW* sink) {
        return qGifEncoder::reencode(animation, o.optimize ? RS_SMALLER : RS_AS_READ, o.delay,
                                     o.loop == -2 ? 0 : o.loop, sink, &progress, &recut);
    });
    progress.finish();
    if (status != kExitOk) return status;
    std::fprintf(summary_stream(o.output), "%s: %d frame%s -> %s%s\n", o.inputs.front().c_str(),
                 animation->num_frames(), animation->num_frames() == 1 ? "" : "s", o.output.c_str(),
                 o.optimize ? (recut ? " (re-cut)" : " (kept as read: smaller)") : "");
    return kExitOk;
}
