// A short tour of what qimg offers so far: palettes and views onto your own memory.
#include <qimg/qimg.h>

#include <cstdio>
#include <vector>

int main() {
    // A four-entry palette with one transparent entry.
    qColormap palette;
    if (palette.create(4) != 0) return 1;
    palette.set_color(0, qPixRA{0, 0, 0, 255});        // black
    palette.set_color(1, qPixRA{255, 255, 255, 255});  // white
    palette.set_color(2, qPixRA{0, 0, 255, 255});      // red
    palette.set_color(3, qPixRA{255, 0, 0, 0});        // blue, transparent
    std::printf("palette: %d entries, alpha kind %d, transparent entry %d\n",
                palette.num_colors(), palette.alpha_hint(), palette.min_t_index());

    // A bottom-up 32-bit buffer of 64 x 48 pixels, viewed top-down through a negative stride.
    const qSize size(64, 48);
    const int stride = row_bytes(size.width, PT_BGRA32);
    std::vector<unsigned char> memory(static_cast<size_t>(stride) * size.height);
    qImageEdit view;
    unsigned char* top_row = memory.data() + static_cast<size_t>(stride) * (size.height - 1);
    if (view.Bind(top_row, size, -stride, PT_BGRA32) != 0) return 2;
    std::printf("view: %d x %d, stride %d, top row at byte %td of the buffer\n", view.width(),
                view.height(), stride, view.pixel_address(0, 0) - memory.data());
    return 0;
}
