# Convenience entry points; CMake does the real work.
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: all deps build test test-fast mutate demo bench fuzz clean

all: build

# Installs missing build and test packages (apt-get; only what is absent).
deps:
	./tools/ensure-deps.sh

build:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j $(JOBS)

# Every test in a normal build, then the same tests under ASan + UBSan.
test: deps build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DSORVANE_SANITIZE=ON
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
		UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 ctest --output-on-failure -j $(JOBS)

# The normal build's tests only, without the integration label (quick loop).
test-fast: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -LE integration

# Plants small faults one at a time into a scratch copy of the tree (under
# /tmp), rebuilds it and reports the share the quick tests catch. The same
# MUTANTS and MUTATION_SEED draw the same faults.
MUTANTS       ?= 300
MUTATION_SEED ?= 13
mutate:
	python3 tools/mutate.py --sample $(MUTANTS) --seed $(MUTATION_SEED) --jobs 2

# Every fuzz target for FUZZ_SECONDS each (clang, libFuzzer, ASan + UBSan).
FUZZ_SECONDS ?= 60
fuzz:
	./tools/fuzz.sh $(FUZZ_SECONDS)

demo: build
	./tools/demo.sh $(BUILD)/sorvane

bench: build
	./bench/run_all.sh $(BUILD)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) build-fuzz out
