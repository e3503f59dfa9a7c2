# The two commands a newcomer needs:
#   make demo   build in release mode and run the main job on a built-in sample
#   make test   build with AddressSanitizer + UBSan and run every test through ctest
# Each target installs the Debian packages it needs when they are missing.

JOBS ?= $(shell nproc)
ENSURE := scripts/ensure-packages
CMAKE_CONFIGURE := cmake -G "Unix Makefiles"

BUILD_PACKAGES := cmake make g++ pkg-config
# libpng-dev: the example program writes its picture as a PNG (it is built in the test build too).
# libgif-dev: the GIF tests compare every frame of the corpus with giflib's reading of it.
TEST_PACKAGES := $(BUILD_PACKAGES) libgtest-dev libgmock-dev libpng-dev libgif-dev
DEMO_PACKAGES := $(BUILD_PACKAGES) libpng-dev
BENCH_PACKAGES := $(BUILD_PACKAGES) libbenchmark-dev libpixman-1-dev libgif-dev libstb-dev \
                  libimagequant-dev lomiri-wallpapers-20.04 python3-pil imagemagick
FUZZ_PACKAGES := $(BUILD_PACKAGES) clang libclang-rt-14-dev
FORMAT_PACKAGES := clang-format

.PHONY: all test demo bench fuzz format install-check clean

all: demo

test:
	$(ENSURE) $(TEST_PACKAGES)
	$(CMAKE_CONFIGURE) -S . -B build/test -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" \
	    -DQIMG_SANITIZE=ON -DQIMG_ALLOCATION_HOOK=ON
	cmake --build build/test -j$(JOBS)
	ctest --test-dir build/test --output-on-failure -j$(JOBS)

demo:
	$(ENSURE) $(DEMO_PACKAGES)
	$(CMAKE_CONFIGURE) -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DQIMG_BUILD_TESTS=OFF
	cmake --build build/release -j$(JOBS)
	build/release/examples/qimg_tour

bench:
	$(ENSURE) $(BENCH_PACKAGES)
	$(CMAKE_CONFIGURE) -S . -B build/bench -DCMAKE_BUILD_TYPE=Release -DQIMG_BUILD_TESTS=OFF \
	    -DQIMG_BUILD_BENCH=ON
	cmake --build build/bench -j$(JOBS)
	@[ -f build/bench/gif-dithered-1920x1080.gif ] || \
	    tests/gif/corpus/make-corpus.sh --bench-still build/bench/gif-dithered-1920x1080.gif
	@if [ -x build/bench/bench/qimg_bench ]; then build/bench/bench/qimg_bench; \
	 else echo "no benchmarks built yet"; fi

# FUZZ_SECONDS bounds each target's run.
FUZZ_SECONDS ?= 60
fuzz:
	$(ENSURE) $(FUZZ_PACKAGES)
	CXX=clang++ $(CMAKE_CONFIGURE) -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DQIMG_BUILD_TESTS=OFF -DQIMG_BUILD_FUZZ=ON -DQIMG_WARNINGS_AS_ERRORS=OFF
	cmake --build build/fuzz -j$(JOBS)
	@if [ -x fuzz/run-all ]; then fuzz/run-all build/fuzz $(FUZZ_SECONDS); \
	 else echo "no fuzz targets yet"; fi

format:
	$(ENSURE) $(FORMAT_PACKAGES)
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

# Installs to a temporary prefix and builds the consumer project both through find_package and
# through add_subdirectory.
install-check:
	$(ENSURE) $(BUILD_PACKAGES)
	tests/consumer/check.sh

clean:
	rm -rf build
