# SPDX-License-Identifier: Apache-2.0
# The commands of this project. Every target sets up what it needs first; a second run finds it done.
PRESET ?= release
BUILD := build/$(PRESET)
export CTEST_PARALLEL_LEVEL ?= $(shell nproc)

.PHONY: help setup build demo test test-asan test-tsan test-arm64 test-armv7 render-armv7 test-report test-live lv2 \
	web check-web test-web bench-web fuzz fuzz-merge coverage soak long-calls bench bench-blocks check check-android \
	check-all format dist deb test-deb clean

help:
	@echo "make demo           render the bundled voice through all presets into out/"
	@echo "make test           build and run the tests                (PRESET=release|dev|asan)"
	@echo "make build          build/release/libkrelvcp.so and build/release/krelvcp"
	@echo "make test-asan      the tests under the address and undefined-behaviour sanitizers"
	@echo "make test-tsan      the tests with threads under the thread sanitizer"
	@echo "make soak           random use for SOAK_SECONDS=600: memory stays flat, output sane   (SOAK_SEED=1)"
	@echo "make long-calls     delay and pitch of calls of an hour, minute by minute   (MINUTES=60 PRESET_NUMBER= RATE=)"
	@echo "make lv2            the LV2 plug-in, checked in hosts without sound hardware"
	@echo "make web            the voices for browsers: build/web/krelvcp.html, a page, and build/web/krelvcp/, an npm package"
	@echo "make test-web       them in Node.js, Chromium and Firefox   (SCREENSHOTS=folder keeps pictures; bench-web: speed)"
	@echo "make test-arm64     the tests of the arm64 build under qemu-user; x86-64 and arm64 renders compared"
	@echo "make test-armv7     the same for 32-bit ARM                (render-armv7: only the renders)"
	@echo "make test-report    the comparison page in a headless browser   (SCREENSHOTS=folder keeps pictures)"
	@echo "make test-live      krelvcp live under PipeWire and JACK, without sound hardware"
	@echo "make fuzz           look for inputs that break promises   (FUZZ_SECONDS=60 each, FUZZER=name)"
	@echo "make fuzz-merge     take what the fuzzers found into the committed corpus"
	@echo "make coverage       line coverage of the library's folders by the tests"
	@echo "make bench          time per sample of every preset and unit   (PEERS=1: of other pitch changers too)"
	@echo "make bench-blocks   longest blocks of every preset, as shares of a block's duration"
	@echo "make check          format, static analysis, layering, exported names, size of the tests"
	@echo "make check-android  the library for Android's target, as far as a desk can check it"
	@echo "make check-all      all that .ci/run does, the whole suite on 32-bit ARM, the packages"
	@echo "make dist           the release's source tarball into build/dist, of what is committed"
	@echo "make deb            Debian packages into build/deb, of what is committed   (ARCHITECTURE=arm64)"
	@echo "make test-deb       the packages installed, used and removed in a fresh Debian, and built twice"
	@echo "make format         rewrite the sources in the project's format"
	@echo "make setup          packages and source tarballs only"
	@echo "make clean          remove build/ and out/ (the tarballs in .deps/ stay)"

# What scripts/setup.sh prepares beyond the usual, by preset.
SETUP_asan := check
SETUP_tsan := check
SETUP_fuzz := check
SETUP_android-desk := android
SETUP_arm64 := arm64
SETUP_arm64-system-ne10 := arm64
SETUP_armv7 := armv7
SETUP_wasm := wasm
ARM64 := qemu-aarch64 -L /
ARMV7 := qemu-arm -L /
VERSION := $(shell cat VERSION)

setup:
	@scripts/setup.sh $(SETUP_$(PRESET))

setup-%:
	@scripts/setup.sh $*

build: setup
	@test -f $(BUILD)/build.ninja || cmake --preset $(PRESET)
	@cmake --build --preset $(PRESET) $(addprefix --target ,$(TARGET))

demo: TARGET := krelvcp_program
demo: build
	@scripts/demo.sh $(BUILD)/krelvcp out

test: build
	@ctest --preset $(PRESET)

test-asan:
	@$(MAKE) --no-print-directory test PRESET=asan

test-tsan:
	@$(MAKE) --no-print-directory test PRESET=tsan

soak: export SOAK_SECONDS ?= 600
soak: build
	@$(BUILD)/tests/soak_test

long-calls: build
	@$(BUILD)/krel_long_calls $(or $(MINUTES),60) $(PRESET_NUMBER) $(RATE)

lv2: setup-lv2
	@cmake --preset $(PRESET) >/dev/null
	@cmake --build --preset $(PRESET) --target krelvcp_program krelvcp krel_lv2_plugin krel_lv2_description
	@tests/lv2/lv2_test.py $(BUILD)

web:
	@$(MAKE) --no-print-directory build PRESET=wasm
	@web/build.mjs build/wasm $(VERSION) build/web
	@echo "web: build/web/krelvcp.html, $$(($$(stat -c %s build/web/krelvcp.html) / 1024)) KB; build/web/krelvcp/"

web/node_modules: web/package-lock.json | setup-web
	@cd web && npm ci --no-audit --no-fund --loglevel=error >/dev/null
	@touch $@

check-web: web/node_modules
	@cd web && npm run --silent check

test-web: web check-web
	@$(MAKE) --no-print-directory build PRESET=release TARGET="krelvcp_program krelvoice"
	@node --test web/tests/*.test.mjs

bench-web: web web/node_modules
	@node web/bench/measure.mjs

test-arm64:
	@$(MAKE) --no-print-directory build PRESET=release TARGET=krelvcp_program
	@$(MAKE) --no-print-directory build PRESET=arm64-system-ne10
	@$(MAKE) --no-print-directory build PRESET=arm64
	@scripts/compare_builds.py build/release/krelvcp --same "$(ARM64) build/arm64/krelvcp" \
		--close "$(ARM64) build/arm64-system-ne10/krelvcp"
	@ctest --preset arm64

test-armv7: render-armv7
	@$(MAKE) --no-print-directory build PRESET=armv7
	@ctest --preset armv7

render-armv7:
	@$(MAKE) --no-print-directory build PRESET=release TARGET=krelvcp_program
	@$(MAKE) --no-print-directory build PRESET=armv7 TARGET=krelvcp_program
	@scripts/compare_builds.py build/release/krelvcp --same "$(ARMV7) build/armv7/krelvcp"

test-report: setup-browser
	@$(MAKE) --no-print-directory build PRESET=release TARGET=krelvcp_program
	@KRELVCP=build/release/krelvcp tests/report/browser_test.py

test-live: setup-live
	@cmake --preset $(PRESET) >/dev/null
	@cmake --build --preset $(PRESET) --target krelvcp_program krelvcp krelvoice krel_lv2_plugin krel_lv2_description
	@tests/live/live_test.py $(BUILD)

fuzz: setup-check
	@scripts/fuzz.sh run

fuzz-merge: setup-check
	@scripts/fuzz.sh merge

coverage: setup-coverage
	@scripts/coverage.sh

bench: build
	@$(BUILD)/krel_bench --benchmark_filter=$(if $(PEERS),.,-BM_Peer)
ifdef PEERS
	@$(BUILD)/krel_bench --benchmark_list_tests | grep -q BM_Peer || \
		echo "bench: no peers: libsoundtouch-dev and librubberband-dev are not installed (scripts/setup.sh peers)"
endif

bench-blocks: build
	@$(BUILD)/krel_bench --benchmark_filter=BM_Preset --benchmark_min_time=4 --benchmark_counters_tabular=true

check: build setup-check
	@scripts/check.sh $(BUILD)

check-android: build setup-android
	@android/desk/check.sh $(BUILD)

check-all:
	@.ci/run
	@$(MAKE) --no-print-directory test-armv7
	@$(MAKE) --no-print-directory test-deb

dist:
	@scripts/dist.sh

deb: ARCHITECTURE ?= $(shell dpkg --print-architecture)
deb: setup-deb setup-wasm $(if $(filter arm64,$(ARCHITECTURE)),setup-arm64 setup-deb-arm64)
	@packaging/deb.sh $(ARCHITECTURE)

test-deb: deb
	@$(MAKE) --no-print-directory build PRESET=release TARGET=krelvcp_program
	@packaging/test.sh build/release/krelvcp

format: setup-check
	@git ls-files -z -- '*.h' '*.c' '*.cpp' | xargs -0 clang-format -i

clean:
	rm -rf build out
