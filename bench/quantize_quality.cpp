// The quality table: qimg's palette kinds against libimagequant and Pillow, on the same photos
// in the same run, scored by one PSNR and one SSIM for every tool.
//
// Photos: the four pictures of Debian's lomiri-wallpapers-20.04, box-reduced 4 x 4 (4.4 Mpixel
// in all). For each of 256 and 16 colours, without and with dithering, every tool reduces every
// photo on one thread; the time is the best of three runs of the whole job, in processor time
// of the thread (palette and mapping; for qimg the facade's quantize_colors, for Pillow
// quantize() measured inside Python by bench/pillow_quantize.py, which this program runs on PPM
// copies of the same pixels).
// Printed per tool: mean milliseconds per photo, mean PSNR (RGB, channels pooled) and mean SSIM
// (7 x 7 windows, every position, per RGB channel, averaged), and the time ratio against
// libimagequant at speed 4 (its default).
//
// Usage: qimg_quantize_quality [PILLOW_SCRIPT]   (default: bench/pillow_quantize.py of the tree)
#include <libimagequant.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "photos.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/palette/qIColormap.h"

namespace {

using bench::Photo;

// One reduced photo, as plain RGB bytes.
using Rgb = std::vector<unsigned char>;

Rgb rgb_of(const Photo& p) {
    Rgb out(p.bgra.size() * 3);
    for (size_t i = 0; i < p.bgra.size(); ++i) {
        out[i * 3] = p.bgra[i].red;
        out[i * 3 + 1] = p.bgra[i].green;
        out[i * 3 + 2] = p.bgra[i].blue;
    }
    return out;
}

double psnr(const Rgb& a, const Rgb& b) {
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        const double d = double(a[i]) - b[i];
        sum += d * d;
    }
    const double mse = sum / double(a.size());
    return mse > 0 ? 10.0 * std::log10(255.0 * 255.0 / mse) : 99.0;
}

// Mean SSIM over every 7 x 7 window of every channel, from summed-area tables.
double ssim(const Rgb& a, const Rgb& b, int width, int height) {
    constexpr int kWin = 7;
    constexpr double kC1 = (0.01 * 255) * (0.01 * 255), kC2 = (0.03 * 255) * (0.03 * 255);
    const size_t stride = size_t(width) + 1;
    std::vector<double> sa, sb, saa, sbb, sab;
    double total = 0;
    long windows = 0;
    for (int c = 0; c < 3; ++c) {
        for (auto* t : {&sa, &sb, &saa, &sbb, &sab}) t->assign(stride * (height + 1), 0.0);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const double u = a[(size_t(y) * width + x) * 3 + c];
                const double v = b[(size_t(y) * width + x) * 3 + c];
                const size_t i = (y + 1) * stride + x + 1, up = y * stride + x + 1;
                const auto add = [&](std::vector<double>& t, double value) {
                    t[i] = value + t[i - 1] + t[up] - t[up - 1];
                };
                add(sa, u), add(sb, v), add(saa, u * u), add(sbb, v * v), add(sab, u * v);
            }
        }
        const double n = kWin * kWin;
        for (int y = 0; y + kWin <= height; ++y) {
            for (int x = 0; x + kWin <= width; ++x) {
                const size_t p = y * stride + x, q = (y + kWin) * stride + x;
                const auto box = [&](const std::vector<double>& t) {
                    return t[q + kWin] - t[q] - t[p + kWin] + t[p];
                };
                const double ma = box(sa) / n, mb = box(sb) / n;
                const double va = box(saa) / n - ma * ma, vb = box(sbb) / n - mb * mb;
                const double cov = box(sab) / n - ma * mb;
                total += ((2 * ma * mb + kC1) * (2 * cov + kC2)) /
                         ((ma * ma + mb * mb + kC1) * (va + vb + kC2));
                ++windows;
            }
        }
    }
    return windows ? total / double(windows) : 1.0;
}

// Processor time of this thread: the machine is shared, and every tool runs on one thread, so
// time spent waiting for a core is no tool's cost.
std::chrono::nanoseconds cpu_now() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return std::chrono::seconds(ts.tv_sec) + std::chrono::nanoseconds(ts.tv_nsec);
}

double best_of_three_ms(const std::function<void()>& job) {
    double best = 1e30;
    for (int run = 0; run < 3; ++run) {
        const auto t0 = cpu_now();
        job();
        const std::chrono::duration<double, std::milli> dt = cpu_now() - t0;
        best = std::min(best, dt.count());
    }
    return best;
}

Rgb qimg_reduce(const Photo& photo, qCmapType kind, int colours, bool dither, double& ms) {
    const bench::PhotoBuffer buffer(photo);
    Rgb out;
    ms = 1e30;
    for (int run = 0; run < 3; ++run) {
        qImageProxy proxy;  // handing the photo over copies it: set-up, not timed
        if (proxy.Set(&buffer) != 0) return {};
        const auto t0 = cpu_now();
        const int status = proxy.quantize_colors(colours, kind, dither ? QT_DIFFUSION : QT_NEAREST,
                                                 true, 1.0f, 0.0f, 1, nullptr);
        const std::chrono::duration<double, std::milli> dt = cpu_now() - t0;
        if (status != 0) return {};
        ms = std::min(ms, dt.count());
        const auto* leaf = dynamic_cast<const qIImageBuffer*>(proxy.current_leaf());
        const qIColormap* palette = proxy.colormap();
        out.assign(photo.bgra.size() * 3, 0);
        for (int y = 0; y < photo.height; ++y) {
            const unsigned char* row = leaf->pixel_address(y, 0);
            for (int x = 0; x < photo.width; ++x) {
                const qPixRA c = palette->get_color(row[x]);
                unsigned char* o = &out[(size_t(y) * photo.width + x) * 3];
                o[0] = c.red, o[1] = c.green, o[2] = c.blue;
            }
        }
    }
    return out;
}

Rgb liq_reduce(const Photo& photo, int speed, int colours, bool dither, double& ms) {
    std::vector<unsigned char> indices(photo.bgra.size());
    Rgb out(photo.bgra.size() * 3);
    ms = best_of_three_ms([&] {
        liq_attr* attr = liq_attr_create();
        liq_set_max_colors(attr, colours);
        liq_set_speed(attr, speed);
        liq_image* image =
            liq_image_create_rgba(attr, photo.rgba.data(), photo.width, photo.height, 0);
        liq_result* result = nullptr;
        if (liq_image_quantize(image, attr, &result) == LIQ_OK) {
            liq_set_dithering_level(result, dither ? 1.0f : 0.0f);
            liq_write_remapped_image(result, image, indices.data(), indices.size());
            const liq_palette* pal = liq_get_palette(result);
            for (size_t i = 0; i < indices.size(); ++i) {
                const liq_color c = pal->entries[indices[i]];
                out[i * 3] = c.r, out[i * 3 + 1] = c.g, out[i * 3 + 2] = c.b;
            }
            liq_result_destroy(result);
        }
        liq_image_destroy(image);
        liq_attr_destroy(attr);
    });
    return out;
}

bool write_ppm(const std::string& path, const Rgb& rgb, int w, int h) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    std::fprintf(f, "P6\n%d %d\n255\n", w, h);
    const bool ok = std::fwrite(rgb.data(), 1, rgb.size(), f) == rgb.size();
    return std::fclose(f) == 0 && ok;
}

Rgb read_ppm(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return {};
    int w = 0, h = 0, max = 0;
    Rgb rgb;
    if (std::fscanf(f, "P6 %d %d %d", &w, &h, &max) == 3 && std::fgetc(f) != EOF) {
        rgb.resize(size_t(w) * h * 3);
        if (std::fread(rgb.data(), 1, rgb.size(), f) != rgb.size()) rgb.clear();
    }
    std::fclose(f);
    return rgb;
}

struct Score {
    double ms = 0, psnr = 0, ssim = 0;
    int photos = 0;
};

}  // namespace

int main(int argc, char** argv) {
    // One thread for every tool: Debian's libimagequant runs OpenMP threads, and the OpenMP
    // runtime reads its settings when it is loaded, so the program restarts itself once.
    if (!std::getenv("OMP_NUM_THREADS")) {
        setenv("OMP_NUM_THREADS", "1", 1);
        execv("/proc/self/exe", argv);
    }
    const std::string script = argc > 1 ? argv[1] : QIMG_BENCH_DIR "/pillow_quantize.py";
    const struct {
        const char* name;
        const char* path;
    } files[] = {
        {"bird",   "/usr/share/backgrounds/Kleiber_by_Lukas_Baubkus.jpg"           },
        {"sea",    "/usr/share/backgrounds/Infinite-Sea_by_Aury88.jpg"             },
        {"fossa",  "/usr/share/backgrounds/Fossa_by_Jasper_Roks.jpg"               },
        {"colors", "/usr/share/backgrounds/Painting-Colors_by__herobrine7gamer.jpg"},
    };
    std::vector<Photo> photos;
    std::vector<Rgb> originals;
    // A private folder under the system's temporary directory (TMPDIR or its default).
    std::string dir_template =
        (std::filesystem::temp_directory_path() / "qimg-quality-XXXXXX").string();
    const char* dir = mkdtemp(dir_template.data());
    if (!dir) return 1;
    std::string ppms;
    double mpixel = 0;
    for (const auto& f : files) {
        Photo p = bench::load(f.name, f.path, 4);
        if (p.bgra.empty()) {
            std::fprintf(stderr, "missing %s: apt-get install lomiri-wallpapers-20.04\n", f.path);
            return 1;
        }
        originals.push_back(rgb_of(p));
        const std::string ppm = std::string(dir) + "/" + f.name + ".ppm";
        if (!write_ppm(ppm, originals.back(), p.width, p.height)) return 1;
        ppms += " " + ppm;
        mpixel += p.width * 1e-6 * p.height;
        photos.push_back(std::move(p));
    }
    std::printf("%zu photos, %.2f Mpixel in all, 1 thread\n", photos.size(), mpixel);

    // (tool, colours, dither) -> score
    std::map<std::tuple<std::string, int, int>, Score> scores;
    const auto score = [&](const std::string& tool, int colours, int dither, size_t i,
                           const Rgb& out, double ms) {
        Score& s = scores[{tool, colours, dither}];
        if (out.size() != originals[i].size()) return;
        s.ms += ms;
        s.psnr += psnr(originals[i], out);
        s.ssim += ssim(originals[i], out, photos[i].width, photos[i].height);
        s.photos += 1;
    };
    const std::string pillow_command = "/usr/bin/python3 " + script + " " + dir + ppms;
    FILE* pillow = popen(pillow_command.c_str(), "r");
    char name[64], method[64], path[512];
    int colours = 0, dither = 0;
    double ms = 0;
    while (pillow && std::fscanf(pillow, "%63s %63s %d %d %lf %511s", name, method, &colours,
                                 &dither, &ms, path) == 6) {
        for (size_t i = 0; i < photos.size(); ++i) {
            if (photos[i].name == name)
                score(std::string("Pillow ") + method, colours, dither, i, read_ppm(path), ms);
        }
    }
    if (!pillow || pclose(pillow) != 0) std::fprintf(stderr, "Pillow rows missing\n");

    for (size_t i = 0; i < photos.size(); ++i) {
        for (int c : {256, 16}) {
            for (int d : {0, 1}) {
                Rgb out = qimg_reduce(photos[i], CM_QUALITY, c, d, ms);
                score("qimg quality", c, d, i, out, ms);
                out = qimg_reduce(photos[i], CM_ADAPTIVE, c, d, ms);
                score("qimg median cut", c, d, i, out, ms);
                out = liq_reduce(photos[i], 4, c, d, ms);
                score("libimagequant speed 4", c, d, i, out, ms);
                out = liq_reduce(photos[i], 10, c, d, ms);
                score("libimagequant speed 10", c, d, i, out, ms);
            }
        }
    }
    std::printf("| colours | dither | tool | ms / photo | PSNR dB | SSIM | time / liq speed 4 |\n");
    std::printf("|---:|---|---|---:|---:|---:|---:|\n");
    for (int c : {256, 16}) {
        for (int d : {0, 1}) {
            const Score& base = scores[{"libimagequant speed 4", c, d}];
            for (const char* tool :
                 {"qimg quality", "libimagequant speed 4", "libimagequant speed 10",
                  "Pillow median-cut", "Pillow fast-octree", "qimg median cut"}) {
                const Score& s = scores[{tool, c, d}];
                if (s.photos == 0) continue;
                const double n = s.photos;
                std::printf("| %d | %s | %s | %.1f | %.2f | %.4f | %.3f |\n", c, d ? "yes" : "no",
                            tool, s.ms / n, s.psnr / n, s.ssim / n,
                            base.ms > 0 ? s.ms / base.ms : 0.0);
            }
        }
    }
    std::string cleanup = std::string("rm -rf ") + dir;
    return std::system(cleanup.c_str()) == 0 ? 0 : 1;
}
