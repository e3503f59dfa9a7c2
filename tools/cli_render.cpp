// qimg render FILE.gif -o OUT.png [--frame N | --all] [--scale SX[,SY]]
// qimg sheet  FILE.gif -o SHEET.png [--columns C] [--scale S]
#include <cctype>
#include <cmath>
#include <cstdio>

#include "cli_args.h"
#include "cli_common.h"
#include "cli_label.h"
#include "cli_output.h"
#include "cli_progress.h"
#include "png_io.h"

namespace {

struct RenderOptions {
    std::string input;
    std::string output;
    int frame = 0;
    bool all = false;  // render: every frame, the output a name pattern with one %d
    int columns = 0;   // sheet: 0 chooses a near-square grid
    float scale_x = 1.0f;
    float scale_y = 1.0f;
};

// The output name for frame `index`: the one "%d" (or "%0Nd") of `pattern` replaced by the
// index, "%%" by "%". False when the pattern has no such place, or anything else after a "%".
bool frame_name(const std::string& pattern, int index, std::string& name) {
    name.clear();
    bool placed = false;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '%') {
            name += pattern[i];
            continue;
        }
        if (i + 1 < pattern.size() && pattern[i + 1] == '%') {
            name += '%';
            ++i;
            continue;
        }
        int width = 0;
        size_t j = i + 1;
        if (j + 2 < pattern.size() && pattern[j] == '0' &&
            std::isdigit(static_cast<unsigned char>(pattern[j + 1]))) {
            width = pattern[j + 1] - '0';
            j += 2;
        }
        if (placed || j >= pattern.size() || pattern[j] != 'd') return false;
        char digits[24];
        std::snprintf(digits, sizeof digits, "%0*d", width, index);
        name += digits;
        placed = true;
        i = j;
    }
    return placed;
}

// Parses the options both commands share; `sheet` selects which of --frame / --all /
// --columns exists.
int parse(ArgList& args, bool sheet, RenderOptions& o) {
    std::string error, value;
    bool given_frame = false;
    while (!args.empty()) {
        const std::string word = args.take();
        if (word == "-o" || word == "--output") {
            if (!args.take_value(word, o.output, error)) return report_usage(error);
        } else if (word == "--frame" && !sheet) {
            if (!args.take_value(word, value, error) ||
                !parse_int(word, value, 0, 1 << 30, o.frame, error))
                return report_usage(error);
            given_frame = true;
        } else if (word == "--all" && !sheet) {
            o.all = true;
        } else if (word == "--columns" && sheet) {
            if (!args.take_value(word, value, error) ||
                !parse_int(word, value, 1, 1000, o.columns, error))
                return report_usage(error);
        } else if (word == "--scale") {
            if (!args.take_value(word, value, error)) return report_usage(error);
            if (sheet) {
                if (!parse_float(word, value, 0.01f, 64.0f, o.scale_x, error))
                    return report_usage(error);
                o.scale_y = o.scale_x;
            } else if (!parse_scale_pair(word, value, o.scale_x, o.scale_y, error)) {
                return report_usage(error);
            }
        } else if (word.size() > 1 && word[0] == '-') {
            return report_usage(std::string(sheet ? "sheet" : "render") + ": unknown option '" +
                                word + "'");
        } else if (o.input.empty()) {
            o.input = word;
        } else {
            return report_usage("one input file only");
        }
    }
    if (o.input.empty() || o.output.empty()) return report_usage("FILE.gif and -o OUT.png needed");
    if (o.all && given_frame) return report_usage("render: --frame and --all exclude each other");
    std::string name;
    if (o.all && !frame_name(o.output, 0, name))
        return report_usage(
            "--all: -o needs a name with one %d for the frame number, such as "
            "frame-%03d.png");
    return kExitOk;
}

// Size of a picture of `size` magnified by the factors, at least one pixel each way.
qSize scaled_size(qSize size, float sx, float sy) {
    const double w = std::floor(size.width * static_cast<double>(sx));
    const double h = std::floor(size.height * static_cast<double>(sy));
    return qSize(w < 1 ? 1 : static_cast<int>(w), h < 1 ? 1 : static_cast<int>(h));
}

// A light checkerboard, so that transparent parts of a frame read as transparent.
void paint_checkerboard(qImageEdit& view, qRect area) {
    constexpr int kSquare = 8;
    const unsigned char light[4] = {235, 235, 235, 255};
    const unsigned char dark[4] = {200, 200, 200, 255};
    for (int y = 0; y < area.height; y += kSquare) {
        for (int x = 0; x < area.width; x += kSquare) {
            const bool odd = ((x / kSquare) + (y / kSquare)) % 2 != 0;
            const qRect square = qRect(area.x + x, area.y + y, kSquare, kSquare).intersect(area);
            view.FillRect(square, PT_BGRA32, odd ? dark : light, nullptr);
        }
    }
}

// Magnifies the composed screen by the factors and writes it as a PNG. `bars` shows the steps'
// progress; without it they only stop on Ctrl-C.
int scale_and_write(const Canvas& screen, const RenderOptions& o, const std::string& output,
                    bool bars) {
    Canvas out;
    const qSize size = scaled_size(screen.size, o.scale_x, o.scale_y);
    if (const int s = create_canvas(out, size, output, "the scaled picture"); s != kExitOk)
        return s;
    InterruptCheck check;
    TerminalProgress scaling("scaling");
    const int status =
        out.view.ScaledBlt(qRect(out.size), &screen.view, qPoint(0, 0), o.scale_x, o.scale_y, 1,
                           BLT_COPY, 255, bars ? static_cast<qIMonitor*>(&scaling) : &check);
    scaling.finish();
    if (status != 0) return report_status(o.input, "scaling", status);
    TerminalProgress writing("writing " + output);
    return write_output(output, [&](std::FILE* file) {
        return write_png_bgra(file, out.pixels.data(), out.size.width, out.size.height, out.stride,
                              bars ? static_cast<qIMonitor*>(&writing) : &check);
    });
}

}  // namespace

int command_render(ArgList& args) {
    RenderOptions o;
    if (const int status = parse(args, false, o); status != kExitOk) return status;
    LoadedGif gif;
    if (const int status = load_gif(o.input, gif); status != kExitOk) return status;
    const int frames = gif.animation.num_frames();
    if (o.frame >= frames) {
        return report_error(o.input, "has " + std::to_string(frames) +
                                         " frames; there is no frame " + std::to_string(o.frame));
    }
    Canvas screen;
    if (const int s = create_canvas(screen, gif.animation.size(), o.input, "the screen");
        s != kExitOk)
        return s;
    qFrameComposer composer;
    int status = composer.begin(&gif.animation, &screen.view);
    if (!o.all) {
        TerminalProgress progress("composing");
        if (status == 0) status = composer.compose_to(o.frame, &progress);
        progress.finish();
        if (status != 0) return report_status(o.input, "composing frame", status);
        if (const int s = scale_and_write(screen, o, o.output, true); s != kExitOk) return s;
        std::fprintf(summary_stream(o.output), "%s: frame %d, %d x %d -> %s\n", o.input.c_str(),
                     o.frame, scaled_size(screen.size, o.scale_x, o.scale_y).width,
                     scaled_size(screen.size, o.scale_x, o.scale_y).height, o.output.c_str());
        return kExitOk;
    }
    TerminalProgress progress("rendering frames");
    InterruptCheck check;
    std::string name;
    for (int i = 0; i < frames; ++i) {
        if (status == 0) status = composer.compose_to(i, &check);
        if (status != 0)
            return report_status(o.input, "composing frame " + std::to_string(i), status);
        frame_name(o.output, i, name);
        if (const int s = scale_and_write(screen, o, name, false); s != kExitOk) return s;
        if (!progress.progress(i + 1, frames, 0, 1)) return report_status(o.input, "rendering", 1);
    }
    progress.finish();
    std::string first;
    frame_name(o.output, 0, first);
    std::fprintf(summary_stream(o.output), "%s: %d frame%s -> %s%s%s\n", o.input.c_str(), frames,
                 frames == 1 ? "" : "s", first.c_str(), frames > 1 ? " ... " : "",
                 frames > 1 ? name.c_str() : "");
    return kExitOk;
}

int command_sheet(ArgList& args) {
    RenderOptions o;
    if (const int status = parse(args, true, o); status != kExitOk) return status;
    LoadedGif gif;
    if (const int status = load_gif(o.input, gif); status != kExitOk) return status;
    const int frames = gif.animation.num_frames();
    const int columns = o.columns > 0
                            ? o.columns
                            : static_cast<int>(std::ceil(std::sqrt(static_cast<double>(frames))));
    const int rows = (frames + columns - 1) / columns;

    Canvas screen;
    if (const int s = create_canvas(screen, gif.animation.size(), o.input, "the screen");
        s != kExitOk)
        return s;
    const qSize cell = scaled_size(screen.size, o.scale_x, o.scale_y);
    constexpr int kGap = 6;
    const int font_scale = cell.width >= 120 ? 2 : 1;
    const int label_h = label_height(font_scale) + 4;
    const long long sheet_w = static_cast<long long>(columns) * (cell.width + kGap) + kGap;
    const long long sheet_h = static_cast<long long>(rows) * (cell.height + label_h + kGap) + kGap;
    Canvas sheet;
    if (sheet_w > 30000 || sheet_h > 30000 ||
        sheet.create(qSize(static_cast<int>(sheet_w), static_cast<int>(sheet_h))) != 0) {
        return report_error(
            o.output, "too large: the contact sheet would be " + std::to_string(sheet_w) + " x " +
                          std::to_string(sheet_h) + " pixels (at most 30000 x 30000); try --scale");
    }
    const unsigned char paper[4] = {255, 255, 255, 255};
    const unsigned char ink[4] = {40, 40, 40, 255};
    sheet.view.FillRect(qRect(sheet.size), PT_BGRA32, paper, nullptr);

    qFrameComposer composer;
    int status = composer.begin(&gif.animation, &screen.view);
    TerminalProgress progress("composing frames");
    InterruptCheck check;
    for (int i = 0; status == 0 && i < frames; ++i) {
        status = composer.compose_to(i, &check);
        if (status != 0) break;
        const int x = kGap + (i % columns) * (cell.width + kGap);
        const int y = kGap + (i / columns) * (cell.height + label_h + kGap);
        const qRect area(x, y, cell.width, cell.height);
        paint_checkerboard(sheet.view, area);
        status = sheet.view.ScaledBlt(area, &screen.view, qPoint(0, 0), o.scale_x, o.scale_y, 1,
                                      BLT_OVER, 255, &check);
        if (status != 0) break;
        // The label goes under the cell when it fits: "index: delay ms", or just the index.
        char text[48];
        std::snprintf(text, sizeof text, "%d: %dms", i, gif.animation.frame_delay());
        std::string label = text;
        if (label_width(label, font_scale) > cell.width) label = std::to_string(i);
        if (label_width(label, font_scale) <= cell.width + kGap)
            draw_label(sheet.view, x, y + cell.height + 2, label, font_scale, ink);
        if (!progress.progress(i + 1, frames, 0, 1)) status = 1;
    }
    progress.finish();
    if (status != 0) return report_status(o.input, "composing", status);
    TerminalProgress writing("writing " + o.output);
    status = write_output(o.output, [&](std::FILE* file) {
        return write_png_bgra(file, sheet.pixels.data(), sheet.size.width, sheet.size.height,
                              sheet.stride, &writing);
    });
    writing.finish();
    if (status != kExitOk) return status;
    std::fprintf(summary_stream(o.output), "%s: %d frames on a %d x %d sheet -> %s\n",
                 o.input.c_str(), frames, sheet.size.width, sheet.size.height, o.output.c_str());
    return kExitOk;
}
