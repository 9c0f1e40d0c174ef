# A thin face over the CMake presets and scripts/setup.sh: `make help` tells what there is.
.DEFAULT_GOAL := help
.PHONY: long-recordings fuzz-long mutate serve-demo page-test matrix process-bench help setup build test demo faults bench asan tsan fuzz reproducible lint format coverage docs packages windows arm root-test clean gateway-asan gateway-tsan

help: ## This list
	@sed -n 's/^\([a-z-]*\):.*## /\1\t/p' Makefile | expand -t 16

setup: ## Install what is missing (Debian packages)
	@scripts/setup.sh

build/%/build.ninja: | setup
	@cmake --preset $*

build: setup build/release/build.ninja ## Build library, tool, tests and examples, optimised
	@cmake --build --preset release

test: build ## Build and run every test
	@ctest --preset release

demo: ## Pack a clip into every format, read each back, print the table
	@scripts/setup.sh demo
	@mkdir -p build && cmake --preset demo >build/demo-configure.log 2>&1 || { cat build/demo-configure.log; exit 1; }
	@cmake --build --preset demo
	@scripts/demo.py build/demo/bin build/demo/files

serve-demo: ## A live gateway with a clip that counts, flashes and beeps: all addresses printed (Ctrl-C ends it)
	@scripts/setup.sh serve
	@mkdir -p build && cmake --preset serve >build/serve-configure.log 2>&1 || { cat build/serve-configure.log; exit 1; }
	@cmake --build --preset serve
	@test -s build/serve-clip.mp4 || scripts/serve_clip.py build/serve-clip.mp4
	@build/serve/bin/muxora-serve demo=build/serve-clip.mp4

page-test: build ## The gateway's page watched in Chromium for a minute; the screenshot stays in build/page
	@MUXORA_SERVE=build/release/bin/muxora-serve PAGE_SECONDS=60 PAGE_STRICT=1 PAGE_ARTEFACTS=build/page python3 -B tests/gateway/page_test.py

bench: setup build/bench/build.ninja ## Each format against memcpy and a general-purpose muxer
	@cmake --build --preset bench
	@build/bench/bin/muxora_bench --benchmark_out=build/bench/bench.json --benchmark_out_format=json

matrix: build ## Odd inputs times every format: each cell a right output, or a refusal with a reason
	@MUXORA_TOOL=build/release/bin/muxora tests/players/matrix.py

process-bench: build ## muxora pack against ffmpeg -c copy, the whole process, from 1 MB to 2 GB
	@bench/process_speed.py build/release/bin/muxora

long-recordings: setup build/bench/build.ninja ## Ten million frames into each format: time a frame, and memory
	@cmake --build --preset bench --target muxora_long_bench
	@bench/long_recordings.py build/bench

faults: setup build/release/build.ninja ## Every allocation and every write of a stream fails in turn, format by format
	@cmake --build --preset release --target fault_tests
	@MUXORA_FAULTS=all build/release/bin/fault_tests --gtest_brief=1

gateway-asan gateway-tsan: %: setup ## The gateway and its tests under sanitizers (a quarter of an hour each on two cores)
	@cmake --preset $@ && cmake --build --preset $@ && ctest --preset $@

asan tsan: %: setup ## The tests under sanitizers (asan: address and undefined behaviour)
	@cmake --preset $@ && cmake --build --preset $@ && ctest --preset $@

fuzz: setup build/fuzz/build.ninja ## Every fuzz target for a bounded time (SECONDS_EACH=20)
	@cmake --build --preset fuzz
	@scripts/fuzz.sh build/fuzz/bin

fuzz-long: setup build/fuzz/build.ninja ## All fuzz targets together for HOURS=1, from the corpus that the last run kept
	@cmake --build --preset fuzz
	@HOURS=$(or $(HOURS),1) KEEP=build/fuzz-corpus scripts/fuzz.sh build/fuzz/bin

mutate: setup ## One token of the library changed at a time: what no test notices (COUNT=1000, hours)
	@scripts/mutate.py --count $(or $(COUNT),1000)

reproducible: setup ## The library built twice, in two folders: the same bytes
	@scripts/reproducible.sh

coverage: setup ## Branches of the library and of the tool that the tests take; fails below its floor
	@cmake --preset coverage && cmake --build --preset coverage
	@rm -rf build/coverage/profiles
	@# Where no file may grow, no count can be written, and says so.
	@LLVM_PROFILE_FILE=$(CURDIR)/build/coverage/profiles/%m.profraw ctest --preset coverage -E "AFullFileSystem|ADiskThatFillsUp|rowser|TwoHours|demo|install|docs"
	@scripts/coverage.py build/coverage

lint: setup build/release/build.ninja ## clang-format and clang-tidy
	@scripts/lint.sh build/release
	@scripts/lint.sh build/release gateway

format: setup ## Rewrite all sources with clang-format
	@scripts/lint.sh --fix

docs: setup ## The documentation site, in build/docs/html
	@scripts/docs.sh

packages: setup build/package/build.ninja ## Debian packages and a source tarball, in build/package
	@cmake --build --preset package
	@cd build/package && cpack && cpack --config CPackSourceConfig.cmake

windows arm: build ## All tests under wine, or for 64-bit Arm under qemu, and the same bytes as here
	@scripts/setup.sh platforms
	@scripts/platforms.sh $(if $(filter arm,$@),aarch64,mingw)

root-test: setup ## In a bare Debian root: the library built, the packages installed and used (as root, minutes)
	@scripts/setup.sh root
	@scripts/root_test.sh

clean: ## Remove all builds
	@rm -rf build
