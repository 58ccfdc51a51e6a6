# Front door: `make demo` and `make test` install what they need, configure, build and run.
BUILD ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps build demo test bench clean

all: build

deps:
	@scripts/install-deps.sh

$(BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS)

build: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	@scripts/demo.sh $(BUILD)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# Benchmarks in their own optimised build tree, so the main build keeps its settings.
bench: deps
	cmake -S . -B $(BUILD)-bench -DCMAKE_BUILD_TYPE=Release -DAIM_BUILD_BENCH=ON -DAIM_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(BUILD)-bench -j $(JOBS) --target aim_bench
	$(BUILD)-bench/bin/aim_bench

clean:
	rm -rf $(BUILD) $(BUILD)-bench
