// qimg quantize IN.png|IN.gif -o OUT.png|OUT.gif --colors N
//                [--palette quality|median-cut|cube|gray] [--dither [--color-strength S]
//                [--alpha-strength S]] [--alpha-threshold A] [--opaque | --transparent-entry]
#include <cstdio>
#include <cstring>

#include "cli_args.h"
#include "cli_common.h"
#include "cli_gif_write.h"
#include "cli_output.h"
#include "cli_progress.h"
#include "png_io.h"

namespace {

struct QuantizeOptions {
    std::string input;
    std::string output;
    int colors = 0;
    qCmapType palette = CM_QUALITY;
    bool dither = false;
    float color_strength = 1.0f;
    float alpha_strength = 1.0f;
    int alpha_threshold = 128;  // below it a pixel is transparent
    bool opaque = false;
    bool transparent_entry = false;  // a transparent entry even for a picture without any
};

int parse(ArgList& args, QuantizeOptions& o) {
    std::string error, value;
    while (!args.empty()) {
        const std::string word = args.take();
        if (word == "-o" || word == "--output") {
            if (!args.take_value(word, o.output, error)) return report_usage(error);
        } else if (word == "--colors") {
            if (!args.take_value(word, value, error) ||
                !parse_int(word, value, 2, 256, o.colors, error))
                return report_usage(error);
        } else if (word == "--palette") {
            if (!args.take_value(word, value, error)) return report_usage(error);
            if (value == "quality")
                o.palette = CM_QUALITY;
            else if (value == "median-cut" || value == "adaptive")
                o.palette = CM_ADAPTIVE;
            else if (value == "cube")
                o.palette = CM_CUBE;
            else if (value == "gray" || value == "grey")
                o.palette = CM_GRAY;
            else
                return report_usage("--palette takes quality, median-cut, cube or gray, not '" +
                                    value + "'");
        } else if (word == "--dither") {
            o.dither = true;
        } else if (word == "--color-strength" || word == "--alpha-strength") {
            float& target = word == "--color-strength" ? o.color_strength : o.alpha_strength;
            if (!args.take_value(word, value, error) ||
                !parse_float(word, value, 0.0f, 1.0f, target, error))
                return report_usage(error);
        } else if (word == "--alpha-threshold") {
            if (!args.take_value(word, value, error) ||
                !parse_int(word, value, 1, 255, o.alpha_threshold, error))
                return report_usage(error);
        } else if (word == "--opaque") {
            o.opaque = true;
        } else if (word == "--transparent-entry") {
            o.transparent_entry = true;
        } else if (!word.empty() && word[0] == '-') {
            return report_usage("quantize: unknown option '" + word + "'");
        } else if (o.input.empty()) {
            o.input = word;
        } else {
            return report_usage("quantize: one input file only");
        }
    }
    if (o.input.empty() || o.output.empty() || o.colors == 0)
        return report_usage("quantize needs IN.png, -o OUT.png and --colors N");
    if (!has_extension(o.output, ".png") && !has_extension(o.output, ".gif"))
        return report_usage("quantize: -o " + o.output +
                            ": the name must end in .png or .gif, which chooses the format");
    if (o.opaque && o.transparent_entry)
        return report_usage("quantize: --opaque and --transparent-entry exclude each other");
    return kExitOk;
}

// The picture to reduce as PT_BGRA32: a PNG, or frame 0 of a GIF as it shows on the screen.
int load_picture(const std::string& path, PngPicture& picture) {
    FileKind kind;
    if (!sniff_input(path, kind)) return kExitFailure;
    std::string error;
    if (kind == FileKind::png && !read_png(path, picture, error)) return report_error(path, error);
    if (kind == FileKind::png)
        return TerminalProgress::interrupted() ? report_status(path, "reading", ST_CANCELLED)
                                               : kExitOk;
    if (kind != FileKind::gif) return report_error(path, "neither a PNG nor a GIF file");
    LoadedGif gif;
    if (const int status = load_gif(path, gif); status != kExitOk) return status;
    Canvas screen;
    if (const int s = create_canvas(screen, gif.animation.size(), path, "the screen"); s != kExitOk)
        return s;
    qFrameComposer composer;
    InterruptCheck check;
    int status = composer.begin(&gif.animation, &screen.view);
    if (status == 0) status = composer.compose_to(0, &check);
    if (status != 0) return report_status(path, "composing frame 0", status);
    picture.width = screen.size.width;
    picture.height = screen.size.height;
    picture.pixels = std::move(screen.pixels);  // rows of width * 4 bytes, as PngPicture's
    return kExitOk;
}

}  // namespace

int command_quantize(ArgList& args) {
    QuantizeOptions o;
    if (const int status = parse(args, o); status != kExitOk) return status;
    PngPicture picture;
    if (const int status = load_picture(o.input, picture); status != kExitOk) return status;

    // With two-level alpha (all but --dither with alpha diffusion, which the quality palette does
    // not do) a pixel below the threshold becomes transparent, where the library keeps every
    // alpha from 1 up as opaque; diffused alpha keeps the alphas as they are. A picture
    // without transparent pixels gets a palette without a transparent entry, unless asked.
    const bool diffused_alpha = o.dither && o.alpha_strength > 0.0f && o.palette != CM_QUALITY;
    bool has_transparency = false;
    for (size_t i = 3; i < picture.pixels.size(); i += 4) {
        unsigned char& alpha = picture.pixels[i];
        has_transparency |= diffused_alpha ? alpha < 255 : alpha < o.alpha_threshold;
        if (!diffused_alpha && alpha < o.alpha_threshold) alpha = 0;
    }
    const bool opaque = o.opaque || (!has_transparency && !o.transparent_entry);

    // Hand the pixels to the library as a true-colour image.
    qDirectImage image;
    int status = image.Create_buffer(qSize(picture.width, picture.height), PT_BGRA32, nullptr);
    if (status != 0) return report_status(o.input, "loading", status);
    for (int y = 0; y < picture.height; ++y) {
        std::memcpy(image.pixel_address(y, 0),
                    picture.pixels.data() + static_cast<size_t>(y) * picture.stride(),
                    static_cast<size_t>(picture.stride()));
    }
    qImageProxy proxy;
    status = proxy.Set(&image);
    if (status != 0) return report_status(o.input, "loading", status);

    // Pixels below the threshold do not vote for palette colours unless alpha is ignored.
    const auto min_alpha = static_cast<unsigned char>(opaque ? 0 : o.alpha_threshold);
    TerminalProgress progress("quantizing " + o.input);
    status = proxy.quantize_colors(o.colors, o.palette, o.dither ? QT_DIFFUSION : QT_NEAREST,
                                   opaque, o.color_strength, o.dither ? o.alpha_strength : 0.0f,
                                   min_alpha, &progress);
    progress.finish();
    if (status != 0) return report_status(o.input, "quantizing", status);

    const auto* indexed = dynamic_cast<const qIIndexImage*>(proxy.current_leaf());
    if (!indexed || !indexed->colormap()) return report_error(o.input, "no indexed result");
    const qIColormap& palette = *indexed->colormap();
    const qSize size = indexed->size();
    // The fixed palettes come in whole steps: say when that gave another number than asked.
    if ((o.palette == CM_CUBE || o.palette == CM_GRAY) && palette.num_colors() != o.colors) {
        std::fprintf(stderr, "qimg: %s: note: the %s palette for %d colours has %d entries%s\n",
                     o.output.c_str(), o.palette == CM_CUBE ? "cube" : "gray", o.colors,
                     palette.num_colors(), opaque ? "" : ", the transparent one included");
    }
    TerminalProgress writing("writing " + o.output);
    if (has_extension(o.output, ".gif")) {
        status = write_indexed_gif(o.output, *indexed, &writing);
    } else {
        status = write_output(o.output, [&](std::FILE* file) {
            return write_png_indexed(file, indexed->pixel_address(0, 0), size.width, size.height,
                                     row_bytes(size.width, PT_INDEX8), palette, &writing);
        });
    }
    writing.finish();
    if (status != kExitOk) return status;
    std::fprintf(summary_stream(o.output), "%s: %d x %d, %d palette entries -> %s\n",
                 o.input.c_str(), size.width, size.height, palette.num_colors(), o.output.c_str());
    return kExitOk;
}
