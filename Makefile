# Entry points. Each target installs what is missing first, so that both
# work on a fresh Debian 12 machine.
JOBS ?= $(shell nproc)
BUILD ?= build
ASAN_BUILD ?= build-asan
ARMHF_BUILD ?= build-armhf
DEMO_CONFIG ?= $(BUILD)/maps/demo/demo-config.json

.PHONY: all deps build build-asan test test-normal test-asan demo bench readme-table deb armhf test-armhf clean

all: build

deps:
	@scripts/install-deps.sh

# The normal build is optimised without debug information: it is what the
# daemon runs from, and it keeps the two builds of `make test` short. The
# sanitizer build carries the debug information that reports need.
build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG"
	cmake --build $(BUILD) -j $(JOBS)

build-asan: deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DORV_SANITIZE=ON -DORV_BUILD_BENCH=OFF
	cmake --build $(ASAN_BUILD) -j $(JOBS)

test-normal: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

test-asan: build-asan
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1 \
	UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

test: test-normal test-asan

demo: build
	@scripts/run-demo.sh $(BUILD) $(DEMO_CONFIG)

# The README's demo map table is the map's own export; a test fails until
# this has been run after a change to the demo map.
readme-table: build
	@scripts/update-readme-table.sh $(BUILD)

bench: build
	@scripts/run-bench.sh $(BUILD)

# The three Debian packages, into $(BUILD)/debs.
deb: build
	cd $(BUILD) && cpack -G DEB -B debs

# Cross build for the gateway's 32-bit ARM CPU, and its functional tests
# under qemu-arm. Installs its own tools and fetches its own armhf sysroot.
armhf: deps
	@scripts/build-armhf.sh $(ARMHF_BUILD)

test-armhf: deps
	@scripts/build-armhf.sh $(ARMHF_BUILD) test

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(ARMHF_BUILD)
