# Entry points. Each target installs what is missing first, so that both
# work on a fresh Debian 12 machine.
JOBS ?= $(shell nproc)
# The tests mostly wait on sockets and timers: one more than the cores.
TEST_JOBS ?= $(shell echo $$(($(JOBS) + 1)))
BUILD ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
ARMHF_BUILD ?= build-armhf
DEMO_CONFIG ?= $(BUILD)/maps/demo/demo-config.json

.PHONY: all deps build build-asan build-tsan build-fuzz test test-normal test-normal-only test-asan test-asan-only test-tsan test-tsan-only test-load soak fuzz test-fuzz test-fuzz-only demo bench readme-table deb armhf test-armhf clean

all: build

deps:
	@scripts/install-deps.sh

# The normal build is optimised without debug information: it is what the
# daemon runs from, and it keeps the two builds of `make test` short. The
# sanitizer build carries the line tables that reports need (-g1: file and
# line in every frame, without the variable information nobody reads there).
build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG"
	cmake --build $(BUILD) -j $(JOBS)

build-asan: deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1 -DORV_SANITIZE=ON -DORV_BUILD_BENCH=OFF
	cmake --build $(ASAN_BUILD) -j $(JOBS)

test-normal: build
	@$(MAKE) --no-print-directory test-normal-only

test-normal-only:
	ctest --test-dir $(BUILD) --output-on-failure -j $(TEST_JOBS)

test-asan: build-asan
	@$(MAKE) --no-print-directory test-asan-only

test-asan-only:
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1 \
	UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(TEST_JOBS)

# ThreadSanitizer: a third tree with only the library, the stand-ins, the
# daemon and the test programs labelled `threads` (its `all`: the other test
# programs are not configured there). Any report fails the test that caused it
# (halt_on_error makes the program exit non-zero).
build-tsan: deps
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1 -DORV_TSAN=ON -DORV_BUILD_BENCH=OFF
	cmake --build $(TSAN_BUILD) -j $(JOBS)

test-tsan: build-tsan
	@$(MAKE) --no-print-directory test-tsan-only

test-tsan-only:
	TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$(CURDIR)/tests/tsan.supp" \
	ctest --test-dir $(TSAN_BUILD) --output-on-failure -j $(JOBS) -L threads

# The four: optimised, ASan/UBSan, ThreadSanitizer and fuzzing; each build
# compiles while the tests of the one before run (see the script).
test: deps
	@scripts/test-all.sh $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD)

# The sustained-write load test (label `load`) for 10 s instead of the 3 s
# it runs within `make test`.
LOAD_SECONDS ?= 10
test-load: build
	ORV_LOAD_SECONDS=$(LOAD_SECONDS) ctest --test-dir $(BUILD) --output-on-failure -L load

demo: build
	@scripts/run-demo.sh $(BUILD) $(DEMO_CONFIG)

# The README's demo map table is the map's own export; a test fails until
# this has been run after a change to the demo map.
readme-table: build
	@scripts/update-readme-table.sh $(BUILD)

# The daemon under 50 clients for SOAK_SECONDS (default 600), sampled every
# 5 s; one summary line, and a failure on memory growth or leaks.
SOAK_SECONDS ?= 600
soak: build
	@scripts/soak.py $(BUILD) $(SOAK_SECONDS)

# The libFuzzer programs, built with clang and the sanitizers in a tree of
# their own, which holds what they link and nothing else.
build-fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DORV_BUILD_FUZZ=ON -DORV_BUILD_TESTS=OFF -DORV_BUILD_BENCH=OFF
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target fuzz

# Each fuzz program run for FUZZ_SECONDS (default 60); what reaches new code
# joins the committed corpus.
FUZZ_SECONDS ?= 60
fuzz: build-fuzz
	@scripts/run-fuzz.sh $(FUZZ_BUILD) $(FUZZ_SECONDS) keep

# The same for 10 s each, keeping nothing: the check `make test` runs on
# top of the corpus replay.
test-fuzz: build-fuzz
	@$(MAKE) --no-print-directory test-fuzz-only

test-fuzz-only:
	@scripts/run-fuzz.sh $(FUZZ_BUILD) 10

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
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD) $(ARMHF_BUILD)
