// A short tour of qimg: hand images to a qImageProxy and draw them into your own memory.
//
// The picture has four panels on a checkerboard:
//   1. a true-colour image drawn at scale 1, placed 8 pixels in from the panel's corner;
//   2. the same image at scale 2 (the placement scales with it);
//   3. an indexed image of rings, every palette entry opaque;
//   4. the same after making palette entry 0 (the white rings) transparent.
// It is written to qimg-tour.png (through libpng; qimg itself writes no files).
#include <png.h>
#include <qimg/qimg.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <vector>

namespace {

constexpr int kPanelWidth = 144, kPanelHeight = 96, kPanels = 4;

// Our own memory: a checkerboard of PT_BGRA32 pixels, 4 bytes each, rows packed.
std::vector<qPixRA> make_canvas(qSize size) {
    std::vector<qPixRA> pixels;
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            const unsigned char shade = (x / 8 + y / 8) % 2 ? 200 : 235;
            pixels.push_back(qPixRA{shade, shade, shade, 255});
        }
    }
    return pixels;
}

// A 64 x 40 colour gradient. Pixels are written straight through pixel_address().
void make_gradient(qDirectImage& image) {
    image.Create_buffer(qSize(64, 40), PT_BGRA32, nullptr);
    for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < 64; ++x) {
            unsigned char* p = image.pixel_address(y, x);  // blue, green, red, alpha
            p[0] = static_cast<unsigned char>(255 - 4 * x);
            p[1] = static_cast<unsigned char>(6 * y);
            p[2] = static_cast<unsigned char>(4 * x);
            p[3] = 255;
        }
    }
    image.Get_alpha_hint();  // AT_OPAQUE: drawing can copy instead of blending
}

// A 64 x 40 image of rings in four colours; entry 0 is white.
void make_rings(qIndexImage& image, qColormap& palette) {
    palette.create(4);
    palette.set_color(0, qPixRA{255, 255, 255, 255});  // white
    palette.set_color(1, qPixRA{40, 40, 220, 255});    // red
    palette.set_color(2, qPixRA{60, 170, 40, 255});    // green
    palette.set_color(3, qPixRA{200, 90, 30, 255});    // blue
    image.Create_buffer(qSize(64, 40), PT_INDEX8);
    image.set_colormap(&palette, -1);  // no transparent index of its own
    for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < 64; ++x) {
            const double distance = std::hypot(x - 31.5, y - 19.5);
            *image.pixel_address(y, x) =
                static_cast<unsigned char>(static_cast<int>(distance) / 4 % 4);
        }
    }
}

}  // namespace

int main() {
    const qSize canvas_size(kPanelWidth * kPanels, kPanelHeight);
    std::vector<qPixRA> canvas = make_canvas(canvas_size);
    qImageEdit view;  // a view onto our memory; it never owns the pixels
    view.Bind(reinterpret_cast<unsigned char*>(canvas.data()), canvas_size, canvas_size.width * 4,
              PT_BGRA32);

    // A true-colour image: the proxy keeps its own copy, so ours could go away now.
    qDirectImage gradient;
    make_gradient(gradient);
    qImageProxy picture;
    if (picture.Set(&gradient) != 0) return 1;
    picture.set_offset(qPoint(8, 8));  // where the image sits inside each drawing rectangle
    const auto panel = [](int k) { return qRect(k * kPanelWidth, 0, kPanelWidth, kPanelHeight); };
    int rc = picture.Draw(&view, panel(0), qPoint(0, 0), 1.0f, 1.0f, false);
    if (rc == 0) rc = picture.Draw(&view, panel(1), qPoint(0, 0), 2.0f, 2.0f, false);

    // An indexed image: the proxy copies the palette too, so edits never touch ours.
    qColormap palette;
    qIndexImage rings;
    make_rings(rings, palette);
    qImageProxy indexed;
    if (indexed.Set(&rings) != 0) return 1;
    indexed.set_offset(qPoint(8, 8));
    if (rc == 0) rc = indexed.Draw(&view, panel(2), qPoint(0, 0), 2.0f, 2.0f, false);
    indexed.set_transparent(0);  // the white rings now let the background through
    if (rc == 0) rc = indexed.Draw(&view, panel(3), qPoint(0, 0), 2.0f, 2.0f, false);
    if (rc != 0) {
        std::fprintf(stderr, "drawing failed with status %d\n", rc);
        return 1;
    }

    // Our memory is PT_BGRA32, which libpng's simplified API takes as PNG_FORMAT_BGRA.
    const char* path = "qimg-tour.png";
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(canvas_size.width);
    png.height = static_cast<png_uint_32>(canvas_size.height);
    png.format = PNG_FORMAT_BGRA;
    if (!png_image_write_to_file(&png, path, 0, canvas.data(), canvas_size.width * 4, nullptr)) {
        std::fprintf(stderr, "cannot write %s: %s\n", path, png.message);
        return 1;
    }
    std::printf(
        "wrote %s (%d x %d): a true-colour image at scale 1 and 2, then an indexed\n"
        "image before and after making palette entry 0 transparent\n",
        std::filesystem::absolute(path).c_str(), canvas_size.width, canvas_size.height);
    return 0;
}
