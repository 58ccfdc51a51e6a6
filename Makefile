# Front door: `make demo` and `make test` install what they need, configure, build and run.
# `make test-arm`, `make test-sanitize` and `make leak-check` run the same tests as on the
# controller (32-bit ARM under qemu-arm) and under AddressSanitizer/UBSan/LeakSanitizer.
BUILD ?= build
ARM_BUILD ?= build-arm
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 30
FUZZ_TARGETS ?=
FUZZ_RUNS ?=
BENCH_ARGS ?=
JOBS ?= $(shell nproc)
MACHINE ?= server-2u
PORT ?= 8000
CMAKE_FLAGS ?=

# Sanitizer settings of the sanitizer runs: any finding fails the run.
SANITIZER_ENV = ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:exitcode=86 \
	UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1:exitcode=86 LSAN_OPTIONS=exitcode=23

.PHONY: all deps deps-arm deps-web build demo serve test test-web bench lib-sizes test-arm build-arm test-sanitize build-asan leak-check \
	deps-fuzz build-fuzz fuzz update-symbols update-expected clean deps-http-bench bench-http test-dmtf test-dmtf-secure

all: build

deps:
	@scripts/install-deps.sh

deps-arm:
	@scripts/install-deps.sh arm

$(BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS)

build: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	@scripts/demo.sh $(BUILD)

# An example machine ingested into $(BUILD)/MACHINE.db and served as Redfish and as the
# inventory page on http://127.0.0.1:PORT/ until Ctrl-C (MACHINE=server-2u, PORT=8000).
serve: build
	rm -f $(BUILD)/$(MACHINE).db $(BUILD)/$(MACHINE).db-wal $(BUILD)/$(MACHINE).db-shm
	$(BUILD)/bin/aimctl --log-level err ingest --db $(BUILD)/$(MACHINE).db \
		--machine examples/machines/$(MACHINE) examples/aim/$(MACHINE).xml
	$(BUILD)/bin/aimctl serve --db $(BUILD)/$(MACHINE).db --port $(PORT)

# Every test but the browser's (make test-web).
test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -LE web

# The inventory page of every example machine in headless Chromium (Debian's chromium, installed
# here); the screenshots land in $(BUILD)/inventory-MACHINE.png.
deps-web:
	@scripts/install-deps.sh web

test-web: build deps-web
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -L web

# Benchmarks in their own optimised build tree, so the main build keeps its settings.
# BENCH_ARGS passes options to aim_bench (`--keep-heap`, `--sizes 1024,4096`, `--reps N`, ...).
bench: deps
	cmake -S . -B $(BUILD)-bench -DCMAKE_BUILD_TYPE=Release -DAIM_BUILD_BENCH=ON -DAIM_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(BUILD)-bench -j $(JOBS) --target aim_bench
	$(BUILD)-bench/bin/aim_bench --csv $(BUILD)-bench/aim_bench.csv $(BENCH_ARGS)

# The Redfish server side by side with nginx serving the same resources as static files (wrk,
# ab, one kept-alive GET); the table goes to docs/benchmark.md and README.md.
deps-http-bench:
	@scripts/install-deps.sh http-bench

bench-http: build deps-http-bench
	scripts/bench-http.sh $(BUILD)

# DMTF's Redfish-Service-Validator on every example machine and its Protocol-Validator on
# server-2u, offline, against aimctl serve (needs the validators' mirrors; see the script's header).
DMTF_VALIDATORS ?= $(CURDIR)/../shared/tools/dmtf-validators/run.sh
test-dmtf: build
	$(DMTF_VALIDATORS) $(BUILD)/bin/aimctl

# The same over HTTPS with a users file (one Administrator made with htpasswd -B).
test-dmtf-secure: build
	scripts/dmtf-secure.sh $(DMTF_VALIDATORS) $(BUILD)/bin/aimctl

# Stripped size of the library as built for the host (x86-64) and for the controller (ARM), both -O2.
lib-sizes: build build-arm
	scripts/lib-sizes.sh $(BUILD) $(ARM_BUILD)

# 32-bit ARM (arm-linux-gnueabihf) build of everything, its tests run under qemu-arm. Optimised
# as on the controller (so that the optimiser's warnings show), without debug information.
build-arm: deps deps-arm
	scripts/arm-sysroot.sh $(ARM_BUILD)/sysroot
	cmake -S . -B $(ARM_BUILD) -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/toolchain-armhf.cmake \
		-DAIM_ARM_SYSROOT=$(abspath $(ARM_BUILD))/sysroot -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -DNDEBUG" \
		$(CMAKE_FLAGS)
	cmake --build $(ARM_BUILD) -j $(JOBS)

test-arm: build build-arm
	scripts/test-arm.sh $(BUILD) $(ARM_BUILD) $(JOBS)

# AddressSanitizer + UndefinedBehaviorSanitizer build of everything (leaks checked too),
# unoptimised, which compiles much faster.
build-asan: deps
	cmake -S . -B $(ASAN_BUILD) -DAIM_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug $(CMAKE_FLAGS)
	cmake --build $(ASAN_BUILD) -j $(JOBS)

test-sanitize: build-asan
	cd $(ASAN_BUILD) && $(SANITIZER_ENV) ctest --output-on-failure -j $(JOBS) -LE web

# A whole `aimctl ingest` of every example machine in the sanitizer build: no leak, no error.
leak-check: build-asan
	$(SANITIZER_ENV) scripts/leak-check.sh $(ASAN_BUILD)

# libFuzzer targets (clang, instrumented with ASan/UBSan): each runs its kept crash inputs, then
# FUZZ_SECONDS (or FUZZ_RUNS executions, whichever comes first) from its seed corpus
# (scripts/fuzz.sh; FUZZ_TARGETS picks some).
deps-fuzz:
	@scripts/install-deps.sh fuzz

build-fuzz: deps deps-fuzz
	cmake -S . -B $(FUZZ_BUILD) -DCMAKE_CXX_COMPILER=clang++-14 -DAIM_FUZZ=ON -DAIM_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target fuzz_targets

fuzz: build-fuzz
	FUZZ_RUNS=$(FUZZ_RUNS) scripts/fuzz.sh $(FUZZ_BUILD) $(FUZZ_SECONDS) $(FUZZ_TARGETS)

# Rewrites symbols/libvqmdb_aim_parser.symbols from the library just built.
update-symbols: build
	scripts/check-symbols.sh --update $(BUILD)/lib/libvqmdb_aim_parser.so symbols/libvqmdb_aim_parser.symbols
	@git diff --stat -- symbols/ 2>/dev/null || true

# Rewrites examples/expected/ (aimctl's output, log and tables of every example machine) from
# the build; review the diff before committing it.
update-expected: build
	AIM_UPDATE_EXPECTED=1 $(BUILD)/bin/aim_tests --gtest_filter=ExampleMachines.*
	@git diff --stat -- examples/expected/ 2>/dev/null || true

clean:
	rm -rf $(BUILD) $(BUILD)-bench $(ARM_BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
