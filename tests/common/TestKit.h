// TestKit.h: small helpers every test program may share: whole files as bytes, the GIF corpus,
// BGRA colours written in RGB(A) order and a palette's entries as a vector.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "qimg/core/qMonitor.h"
#include "qimg/core/qPixel.h"
#include "qimg/palette/qIColormap.h"

namespace qtest {

using Bytes = std::vector<unsigned char>;

inline Bytes read_file(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

#ifdef QIMG_GIF_CORPUS
// Every .gif of the corpus, sorted so that failures name the same file from run to run.
inline std::vector<std::filesystem::path> corpus_files() {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(QIMG_GIF_CORPUS)) {
        if (entry.path().extension() == ".gif") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}
#endif

inline qPixRA rgba(int r, int g, int b, int a = 255) {
    return qPixRA{static_cast<unsigned char>(b), static_cast<unsigned char>(g),
                  static_cast<unsigned char>(r), static_cast<unsigned char>(a)};
}

// Answers false once `row` rows (or other units of work) are done.
class StopAtRow : public qIMonitor {
public:
    explicit StopAtRow(int row) : row_(row) {}
    bool progress(int done, int, int, int) override { return done < row_; }

private:
    int row_;
};

inline std::vector<qPixRA> entries(const qIColormap& map) {
    std::vector<qPixRA> out;
    for (int i = 0; i < map.num_colors(); ++i) out.push_back(map.get_color(i));
    return out;
}

}  // namespace qtest
