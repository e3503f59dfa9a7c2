// qimg quantize IN.png -o OUT.png|OUT.gif --colors N [--palette quality|median-cut|cube|gray]
//                [--dither [--color-strength S] [--alpha-strength S]] [--opaque]
#include <cstring>

#include "cli_args.h"
#include "cli_common.h"
#include "cli_gif_write.h"
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
    bool opaque = false;
};

int parse(ArgList& args, QuantizeOptions& o) {
    std::string error, value;
    while (!args.empty()) {
        const std::string word = args.take();
        if (word == "-o" || word == "--output") {
            if (!args.take_value(word, o.output, error)) return report_usage(error);
        } else if (word == "--colors") {
            if (!args.take_value(word, value, error) || !parse_int(value, 2, 256, o.colors, error))
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
                !parse_float(value, 0.0f, 1.0f, target, error))
                return report_usage(error);
        } else if (word == "--opaque") {
            o.opaque = true;
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
    return kExitOk;
}

}  // namespace

int command_quantize(ArgList& args) {
    QuantizeOptions o;
    if (const int status = parse(args, o); status != kExitOk) return status;

    PngPicture picture;
    std::string error;
    if (!read_png(o.input, picture, error)) return report_error(o.input, error);

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

    // Fully transparent pixels do not vote for palette colours unless alpha is ignored.
    const unsigned char min_alpha = o.opaque ? 0 : 1;
    TerminalProgress progress("quantizing " + o.input);
    status = proxy.quantize_colors(o.colors, o.palette, o.dither ? QT_DIFFUSION : QT_NEAREST,
                                   o.opaque, o.color_strength, o.dither ? o.alpha_strength : 0.0f,
                                   min_alpha, &progress);
    progress.finish();
    if (status != 0) return report_status(o.input, "quantizing", status);

    const auto* indexed = dynamic_cast<const qIIndexImage*>(proxy.current_leaf());
    if (!indexed || !indexed->colormap()) return report_error(o.input, "no indexed result");
    const qSize size = indexed->size();
    // A .gif name gets a GIF; anything else a palette PNG.
    const bool gif = has_gif_extension(o.output);
    if (gif) {
        if (const int written = write_indexed_gif(o.output, *indexed); written != kExitOk) {
            return written;
        }
    }
    std::vector<unsigned char> indices(static_cast<size_t>(size.width) * size.height);
    for (int y = 0; y < size.height; ++y) {
        std::memcpy(indices.data() + static_cast<size_t>(y) * size.width,
                    indexed->pixel_address(y, 0), static_cast<size_t>(size.width));
    }
    if (!gif && !write_png_indexed(o.output, indices.data(), size.width, size.height, size.width,
                                   *indexed->colormap(), error)) {
        return report_error(o.output, error);
    }
    std::printf("%s: %d x %d, %d palette entries -> %s\n", o.input.c_str(), size.width, size.height,
                indexed->colormap()->num_colors(), o.output.c_str());
    return kExitOk;
}
