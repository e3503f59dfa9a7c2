// Runs LLVMFuzzerTestOneInput once per file, so every fuzz target also builds with g++ and
// replays its corpus and past crash files as an ordinary test. Arguments are files or folders
// (folders are read one level deep; missing ones are skipped).
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {
int replay_file(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return 1;
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 0;
}
}  // namespace

int main(int argc, char** argv) {
    int files = 0;
    int failures = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        std::error_code error;
        if (std::filesystem::is_directory(arg, error)) {
            for (const auto& entry : std::filesystem::directory_iterator(arg)) {
                if (!entry.is_regular_file()) continue;
                failures += replay_file(entry.path());
                ++files;
            }
        } else if (std::filesystem::exists(arg, error)) {
            failures += replay_file(arg);
            ++files;
        }
    }
    std::printf("replayed %d inputs\n", files);
    return failures == 0 ? 0 : 1;
}
