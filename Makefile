# The two commands a newcomer needs:
#   make demo   build in release mode and run the main job on a built-in sample
#   make test   build with AddressSanitizer + UBSan and run every test through ctest
# Each target installs the Debian packages it needs when they are missing.

JOBS ?= $(shell nproc)
ENSURE := scripts/ensure-packages
CMAKE_CONFIGURE := cmake -G "Unix Makefiles"

BUILD_PACKAGES := cmake make g++ pkg-config
# libpng-dev: the example and the command-line program read and write PNG through it.
# libgif-dev: the GIF tests compare every frame of the corpus with giflib's reading of it.
TEST_PACKAGES := $(BUILD_PACKAGES) libgtest-dev libgmock-dev libpng-dev libgif-dev
DEMO_PACKAGES := $(BUILD_PACKAGES) libpng-dev
BENCH_PACKAGES := $(BUILD_PACKAGES) libbenchmark-dev libpixman-1-dev libgif-dev libstb-dev \
                  libimagequant-dev lomiri-wallpapers-20.04 python3-pil imagemagick gifsicle
FUZZ_PACKAGES := $(BUILD_PACKAGES) clang libclang-rt-14-dev
FORMAT_PACKAGES := clang-format
# The Python package: pybind11 and numpy build it; pytest runs its tests and Pillow is the peer
# they (and the Python benchmark) compare with. Always Debian's interpreter, whose packages these
# are, and a release library of its own: a sanitized one cannot be loaded into Python.
PYTHON := /usr/bin/python3
PYTHON_PACKAGES := $(BUILD_PACKAGES) python3-dev pybind11-dev python3-numpy python3-pytest python3-pil
PYTHON_BUILD := build/python
RUN_PYTHON := PYTHONPATH=$(PYTHON_BUILD)/python $(PYTHON)
# The 32-bit build compiles GoogleTest from the sources Debian ships in package googletest.
TEST32_PACKAGES := $(BUILD_PACKAGES) g++-multilib googletest

.PHONY: all test tsan test32 demo bench bench-quality fuzz fuzz-smoke format install-check clean \
        python test-python bench-python

all: demo

test:
	$(ENSURE) $(TEST_PACKAGES)
	$(CMAKE_CONFIGURE) -S . -B build/test -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" \
	    -DQIMG_SANITIZE=ON -DQIMG_TEST_HOOKS=ON
	cmake --build build/test -j$(JOBS)
	ctest --test-dir build/test --output-on-failure -j$(JOBS)
	$(MAKE) test-python

# The Python package in build/python/python/qimg; `cmake --install build/python` installs it.
python:
	$(ENSURE) $(PYTHON_PACKAGES)
	$(CMAKE_CONFIGURE) -S . -B $(PYTHON_BUILD) -DCMAKE_BUILD_TYPE=Release -DQIMG_BUILD_TESTS=OFF \
	    -DQIMG_BUILD_TOOLS=OFF -DQIMG_BUILD_EXAMPLES=OFF -DQIMG_BUILD_PYTHON=ON \
	    -DPython3_EXECUTABLE=$(PYTHON)
	cmake --build $(PYTHON_BUILD) -j$(JOBS)

test-python: python
	$(RUN_PYTHON) -m pytest -q -p no:cacheprovider python/tests

# ThreadSanitizer on the thread test: only that program and the library are built.
tsan:
	$(ENSURE) $(TEST_PACKAGES)
	$(CMAKE_CONFIGURE) -S . -B build/tsan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" \
	    -DQIMG_SANITIZE_THREAD=ON -DQIMG_BUILD_TOOLS=OFF -DQIMG_BUILD_EXAMPLES=OFF
	cmake --build build/tsan -j$(JOBS) --target qimg_threads_tests
	TSAN_OPTIONS=halt_on_error=1 build/tsan/tests/qimg_threads_tests

# The library and every test built for 32-bit x86 (-m32) and run under ASan + UBSan, so size
# arithmetic is checked where size_t and pointers have 32 bits.
test32:
	$(ENSURE) $(TEST32_PACKAGES)
	$(CMAKE_CONFIGURE) -S . -B build/test32 --toolchain cmake/i686-linux-gnu.cmake \
	    -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" -DQIMG_SANITIZE=ON \
	    -DQIMG_TEST_HOOKS=ON -DQIMG_GTEST_SOURCE_DIR=/usr/src/googletest \
	    -DQIMG_BUILD_TOOLS=OFF -DQIMG_BUILD_EXAMPLES=OFF
	cmake --build build/test32 -j$(JOBS)
	# A 32-bit process cannot hold the 2 GB frames some fuzz inputs declare: there the allocation
	# fails and the library answers with its status, so ASan must return null instead of aborting.
	ASAN_OPTIONS=allocator_may_return_null=1 ctest --test-dir build/test32 --output-on-failure -j$(JOBS)

# The demo's pictures go to demo-output/.
DEMO_OUT := demo-output
QIMG := build/release/tools/qimg
SAMPLE_GIF := examples/data/qimg-sample.gif
SAMPLE_PNG := examples/data/qimg-sample-plasma.png
demo:
	$(ENSURE) $(DEMO_PACKAGES)
	$(CMAKE_CONFIGURE) -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DQIMG_BUILD_TESTS=OFF
	cmake --build build/release -j$(JOBS)
	mkdir -p $(DEMO_OUT)
	$(QIMG) info $(SAMPLE_GIF)
	$(QIMG) sheet $(SAMPLE_GIF) --scale 2 -o $(DEMO_OUT)/sample-sheet.png
	$(QIMG) render $(SAMPLE_GIF) --frame 3 --scale 4 -o $(DEMO_OUT)/sample-frame3.png
	$(QIMG) quantize $(SAMPLE_PNG) --colors 16 -o $(DEMO_OUT)/plasma-16-nearest.png
	$(QIMG) quantize $(SAMPLE_PNG) --colors 16 --dither -o $(DEMO_OUT)/plasma-16-dithered.png
	cd $(DEMO_OUT) && ../build/release/examples/qimg_tour
	$(MAKE) python
	$(RUN_PYTHON) examples/gif_sheet.py $(SAMPLE_GIF) $(DEMO_OUT)/python-sheet.png \
	    $(DEMO_OUT)/python-frame0-16.png
	@echo
	@echo "Pictures written to $(DEMO_OUT)/:"
	@ls -1 $(DEMO_OUT)

bench:
	$(ENSURE) $(BENCH_PACKAGES)
	$(CMAKE_CONFIGURE) -S . -B build/bench -DCMAKE_BUILD_TYPE=Release -DQIMG_BUILD_TESTS=OFF \
	    -DQIMG_BUILD_BENCH=ON
	cmake --build build/bench -j$(JOBS)
	@[ -f build/bench/gif-dithered-1920x1080.gif ] || \
	    tests/gif/corpus/make-corpus.sh --bench-still build/bench/gif-dithered-1920x1080.gif
	@[ -d build/bench/gif-classes ] || bench/make-gif-classes.sh build/bench/gif-classes
	build/bench/bench/qimg_bench
	$(PYTHON) bench/gif_sizes.py build/bench/tools/qimg

# The palette-quality table of bench/README.md: qimg, libimagequant and Pillow on the same photos.
bench-quality:
	$(ENSURE) $(BENCH_PACKAGES)
	$(CMAKE_CONFIGURE) -S . -B build/bench -DCMAKE_BUILD_TYPE=Release -DQIMG_BUILD_TESTS=OFF \
	    -DQIMG_BUILD_BENCH=ON
	cmake --build build/bench -j$(JOBS) --target qimg_quantize_quality
	build/bench/bench/qimg_quantize_quality

# qimg's Python package beside Pillow on the same files, in one run.
bench-python: python
	$(ENSURE) lomiri-wallpapers-20.04
	$(RUN_PYTHON) bench/python_bench.py

# FUZZ_SECONDS bounds each target's run.
FUZZ_SECONDS ?= 60
fuzz:
	$(ENSURE) $(FUZZ_PACKAGES)
	CXX=clang++ $(CMAKE_CONFIGURE) -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DQIMG_BUILD_TESTS=OFF -DQIMG_BUILD_FUZZ=ON -DQIMG_WARNINGS_AS_ERRORS=OFF \
	    -DQIMG_BUILD_TOOLS=OFF -DQIMG_BUILD_EXAMPLES=OFF
	cmake --build build/fuzz -j$(JOBS) --target $$(cd fuzz && ls *_fuzzer.cpp | sed 's/^/fuzz_/; s/_fuzzer.cpp$$//')
	fuzz/run-all build/fuzz $(FUZZ_SECONDS)

# A short run of every fuzz target, as CI does.
FUZZ_SMOKE_SECONDS ?= 20
fuzz-smoke:
	$(MAKE) fuzz FUZZ_SECONDS=$(FUZZ_SMOKE_SECONDS)

format:
	$(ENSURE) $(FORMAT_PACKAGES)
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

# Installs to a temporary prefix and builds the consumer project both through find_package and
# through add_subdirectory.
install-check:
	$(ENSURE) $(BUILD_PACKAGES)
	tests/consumer/check.sh

clean:
	rm -rf build $(DEMO_OUT)
