// qimg render FILE.gif -o OUT.png [--frame N] [--scale SX[,SY]]
// qimg sheet  FILE.gif -o SHEET.png [--columns C] [--scale S]
#include <cmath>
#include <cstdio>

#include "cli_args.h"
#include "cli_common.h"
#include "cli_label.h"
#include "cli_progress.h"
#include "png_io.h"

namespace {

struct RenderOptions {
    std::string input;
    std::string output;
    int frame = 0;
    int columns = 0;  // sheet: 0 chooses a near-square grid
    float scale_x = 1.0f;
    float scale_y = 1.0f;
};

// Parses the options both commands share; `sheet` selects which of --frame / --columns exists.
int parse(ArgList& args, bool sheet, RenderOptions& o) {
    std::string error, value;
    while (!args.empty()) {
        const std::string word = args.take();
        if (word == "-o" || word == "--output") {
            if (!args.take_value(word, o.output, error)) return report_usage(error);
        } else if (word == "--frame" && !sheet) {
            if (!args.take_value(word, value, error) ||
                !parse_int(value, 0, 1 << 30, o.frame, error))
                return report_usage(error);
        } else if (word == "--columns" && sheet) {
            if (!args.take_value(word, value, error) ||
                !parse_int(value, 1, 1000, o.columns, error))
                return report_usage(error);
        } else if (word == "--scale") {
            if (!args.take_value(word, value, error)) return report_usage(error);
            if (sheet) {
                if (!parse_float(value, 0.01f, 64.0f, o.scale_x, error)) return report_usage(error);
                o.scale_y = o.scale_x;
            } else if (!parse_scale_pair(value, o.scale_x, o.scale_y, error)) {
                return report_usage(error);
            }
        } else if (word.size() > 1 && word[0] == '-') {
            return report_usage("unknown option '" + word + "'");
        } else if (o.input.empty()) {
            o.input = word;
        } else {
            return report_usage("one input file only");
        }
    }
    if (o.input.empty() || o.output.empty()) return report_usage("FILE.gif and -o OUT.png needed");
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

}  // namespace

int command_render(ArgList& args) {
    RenderOptions o;
    if (const int status = parse(args, false, o); status != kExitOk) return status;
    LoadedGif gif;
    if (const int status = load_gif(o.input, gif); status != kExitOk) return status;
    if (o.frame >= gif.animation->num_frames()) {
        return report_error(o.input, "has " + std::to_string(gif.animation->num_frames()) +
                                         " frames; there is no frame " + std::to_string(o.frame));
    }
    Canvas screen;
    if (screen.create(gif.proxy.size()) != 0) return report_error(o.input, "screen too large");
    qFrameComposer composer;
    int status = composer.begin(gif.animation, &screen.view);
    TerminalProgress progress("composing");
    if (status == 0) status = composer.compose_to(o.frame, &progress);
    progress.finish();
    if (status != 0) return report_status(o.input, "composing frame", status);

    Canvas out;
    if (out.create(scaled_size(screen.size, o.scale_x, o.scale_y)) != 0)
        return report_error(o.output, "scaled picture too large");
    status = out.view.ScaledBlt(qRect(out.size), &screen.view, qPoint(0, 0), o.scale_x, o.scale_y,
                                1, BLT_COPY, 255, nullptr);
    if (status != 0) return report_status(o.input, "scaling", status);
    std::string error;
    if (!write_png_bgra(o.output, out.pixels.data(), out.size.width, out.size.height, out.stride,
                        error)) {
        return report_error(o.output, error);
    }
    std::printf("%s: frame %d, %d x %d -> %s\n", o.input.c_str(), o.frame, out.size.width,
                out.size.height, o.output.c_str());
    return kExitOk;
}

int command_sheet(ArgList& args) {
    RenderOptions o;
    if (const int status = parse(args, true, o); status != kExitOk) return status;
    LoadedGif gif;
    if (const int status = load_gif(o.input, gif); status != kExitOk) return status;
    const int frames = gif.animation->num_frames();
    const int columns = o.columns > 0
                            ? o.columns
                            : static_cast<int>(std::ceil(std::sqrt(static_cast<double>(frames))));
    const int rows = (frames + columns - 1) / columns;

    Canvas screen;
    if (screen.create(gif.proxy.size()) != 0) return report_error(o.input, "screen too large");
    const qSize cell = scaled_size(screen.size, o.scale_x, o.scale_y);
    constexpr int kGap = 6;
    const int font_scale = cell.width >= 120 ? 2 : 1;
    const int label_h = label_height(font_scale) + 4;
    const long long sheet_w = static_cast<long long>(columns) * (cell.width + kGap) + kGap;
    const long long sheet_h = static_cast<long long>(rows) * (cell.height + label_h + kGap) + kGap;
    Canvas sheet;
    if (sheet_w > 30000 || sheet_h > 30000 ||
        sheet.create(qSize(static_cast<int>(sheet_w), static_cast<int>(sheet_h))) != 0) {
        return report_error(o.output, "contact sheet would be too large; try --scale");
    }
    const unsigned char paper[4] = {255, 255, 255, 255};
    const unsigned char ink[4] = {40, 40, 40, 255};
    sheet.view.FillRect(qRect(sheet.size), PT_BGRA32, paper, nullptr);

    qFrameComposer composer;
    int status = composer.begin(gif.animation, &screen.view);
    TerminalProgress progress("composing frames");
    for (int i = 0; status == 0 && i < frames; ++i) {
        status = composer.compose_to(i, nullptr);
        if (status != 0) break;
        const int x = kGap + (i % columns) * (cell.width + kGap);
        const int y = kGap + (i / columns) * (cell.height + label_h + kGap);
        const qRect area(x, y, cell.width, cell.height);
        paint_checkerboard(sheet.view, area);
        status = sheet.view.ScaledBlt(area, &screen.view, qPoint(0, 0), o.scale_x, o.scale_y, 1,
                                      BLT_OVER, 255, nullptr);
        // The label goes under the cell when it fits: "index: delay ms", or just the index.
        char text[48];
        std::snprintf(text, sizeof text, "%d: %dms", i, gif.animation->frame_delay());
        std::string label = text;
        if (label_width(label, font_scale) > cell.width) label = std::to_string(i);
        if (label_width(label, font_scale) <= cell.width + kGap)
            draw_label(sheet.view, x, y + cell.height + 2, label, font_scale, ink);
        if (!progress.progress(i + 1, frames, 0, 1)) status = 1;
    }
    progress.finish();
    if (status != 0) return report_status(o.input, "composing", status);
    std::string error;
    if (!write_png_bgra(o.output, sheet.pixels.data(), sheet.size.width, sheet.size.height,
                        sheet.stride, error)) {
        return report_error(o.output, error);
    }
    std::printf("%s: %d frames on a %d x %d sheet -> %s\n", o.input.c_str(), frames,
                sheet.size.width, sheet.size.height, o.output.c_str());
    return kExitOk;
}
