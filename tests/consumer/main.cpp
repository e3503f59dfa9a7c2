// Uses a few exported classes across the library boundary, including a capability query.
#include <qimg/qimg.h>

#include <cstdio>

int main() {
    qColormap palette;
    if (palette.create(4) != 0) return 1;
    palette.set_opaque_all();
    if (!palette.set_transparent(2)) return 1;
    qSafeColormap copy(&palette, -1);
    if (copy.num_colors() != 4 || copy.min_t_index() != 2) return 2;

    unsigned char pixels[2 * 8] = {};
    qImageEdit view;
    if (view.Bind(pixels, qSize(2, 2), 8, PT_BGRA32) != 0 || !view.valid()) return 3;
    if (row_bytes(10, PT_BGR24) != 32) return 4;
    std::printf("qimg consumer: ok\n");
    return 0;
}
