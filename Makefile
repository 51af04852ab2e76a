# The commands of this project. Every target sets up what it needs first; a second run finds it done.
PRESET ?= release
BUILD := build/$(PRESET)
export CTEST_PARALLEL_LEVEL ?= $(shell nproc)

.PHONY: help setup build demo test test-asan test-tsan test-arm64 fuzz fuzz-merge coverage soak bench bench-blocks \
	check check-android format clean

help:
	@echo "make demo           render the bundled voice through all presets into out/"
	@echo "make test           build and run the tests                (PRESET=release|dev|asan)"
	@echo "make build          build/release/libkrelvcp.so and build/release/krelvcp"
	@echo "make test-asan      the tests under the address and undefined-behaviour sanitizers"
	@echo "make test-tsan      the tests with threads under the thread sanitizer"
	@echo "make soak           random use for SOAK_SECONDS=600: memory stays flat, output sane   (SOAK_SEED=1)"
	@echo "make test-arm64     the tests of the arm64 build under qemu-user; x86-64 and arm64 renders compared"
	@echo "make fuzz           look for inputs that break promises   (FUZZ_SECONDS=60 each, FUZZER=name)"
	@echo "make fuzz-merge     take what the fuzzers found into the committed corpus"
	@echo "make coverage       line coverage of the library's folders by the tests"
	@echo "make bench          time per sample of every preset and unit"
	@echo "make bench-blocks   longest blocks of every preset, as shares of a block's duration"
	@echo "make check          format, static analysis, layering, exported names"
	@echo "make check-android  the library for Android's target, as far as a desk can check it"
	@echo "make format         rewrite the sources in the project's format"
	@echo "make setup          packages and source tarballs only"
	@echo "make clean          remove build/ and out/ (the tarballs in .deps/ stay)"

SETUP_asan := check
SETUP_tsan := check
SETUP_fuzz := check
SETUP_coverage := coverage
SETUP_android-desk := android
SETUP_arm64 := arm64
SETUP_arm64-system-ne10 := arm64
ARM64 := qemu-aarch64 -L /

setup:
	@scripts/setup.sh $(SETUP_$(PRESET))

build: setup
	@test -f $(BUILD)/build.ninja || cmake --preset $(PRESET)
	@cmake --build --preset $(PRESET) $(addprefix --target ,$(TARGET))

demo: build
	@scripts/demo.sh $(BUILD)/krelvcp out

test: build
	@ctest --preset $(PRESET)

test-asan:
	@scripts/setup.sh check
	@$(MAKE) --no-print-directory test PRESET=asan

test-tsan:
	@$(MAKE) --no-print-directory test PRESET=tsan

soak: export SOAK_SECONDS ?= 600
soak: build
	@$(BUILD)/tests/soak_test

test-arm64:
	@$(MAKE) --no-print-directory build PRESET=release TARGET=krelvcp_program
	@$(MAKE) --no-print-directory build PRESET=arm64-system-ne10
	@$(MAKE) --no-print-directory build PRESET=arm64
	@scripts/compare_builds.py build/release/krelvcp --same "$(ARM64) build/arm64/krelvcp" \
		--close "$(ARM64) build/arm64-system-ne10/krelvcp"
	@ctest --preset arm64

fuzz:
	@scripts/setup.sh check
	@scripts/fuzz.sh run

fuzz-merge:
	@scripts/setup.sh check
	@scripts/fuzz.sh merge

coverage:
	@scripts/setup.sh coverage
	@scripts/coverage.sh

bench: build
	@$(BUILD)/krel_bench

bench-blocks: build
	@$(BUILD)/krel_bench --benchmark_filter=BM_Preset --benchmark_min_time=4 --benchmark_counters_tabular=true

check: build
	@scripts/setup.sh check
	@scripts/check.sh $(BUILD)

check-android: build
	@scripts/setup.sh android
	@android/desk/check.sh $(BUILD)

format:
	@scripts/setup.sh check
	@git ls-files -z -- '*.h' '*.c' '*.cpp' | xargs -0 clang-format -i

clean:
	rm -rf build out
