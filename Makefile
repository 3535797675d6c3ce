# Convenience entry points; CMake does the real work.
BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
WEB_BUILD  ?= build-web
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
PREFIX     ?= /usr/local

# Each target first installs what it needs and the machine lacks
# (tools/ensure-deps.sh TASK; apt-get, as root).
DEPS = ./tools/ensure-deps.sh
# The tests are built when GoogleTest and libsndfile are there (SORVANE_TESTS
# AUTO); the test targets ask for them (ON).
CONFIGURE = cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(if $(SORVANE_TESTS),-DSORVANE_TESTS=$(SORVANE_TESTS))

.PHONY: all deps program build test test-tsan test-fast web web-build test-web mutate demo bench fuzz install uninstall deb clean

all: build

# Everything every target needs.
deps:
	$(DEPS)

# The programs alone (the converter and sorvane-batch), with their compressed
# manual pages: what demo, install and deb use.
program:
	$(DEPS) build
	$(CONFIGURE)
	cmake --build $(BUILD) -j $(JOBS) --target sorvane sorvane-batch

# Everything configured: the program, the tools, the benchmarks and, when
# configured, the tests.
build:
	$(DEPS) build
	$(CONFIGURE)
	cmake --build $(BUILD) -j $(JOBS)

# Every test in a normal build, then the same tests under ASan + UBSan, then
# under ThreadSanitizer.
test:
	$(DEPS) test
	$(MAKE) build SORVANE_TESTS=ON
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DSORVANE_SANITIZE=ON -DSORVANE_TESTS=ON
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
		UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 ctest --output-on-failure -j $(JOBS)
	$(MAKE) test-tsan

# The tests under ThreadSanitizer: the SoundFont pool is copied on a thread of
# its own. A report goes to standard error, which the tests require empty.
test-tsan:
	$(DEPS) test
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DSORVANE_TSAN=ON -DSORVANE_TESTS=ON
	cmake --build $(TSAN_BUILD) -j $(JOBS)
	cd $(TSAN_BUILD) && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
		ctest --output-on-failure -j $(JOBS)

# The normal build's tests only, without the integration label (quick loop).
test-fast:
	$(DEPS) test
	$(MAKE) build SORVANE_TESTS=ON
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -LE integration

# The WebAssembly build (emscripten): $(WEB_BUILD)/page/index.html, the page
# that converts a dropped bank in the browser, and $(WEB_BUILD)/sorvane.js, the
# program under node.
web:
	$(DEPS) web
	$(MAKE) web-build

web-build:
	emcmake cmake -S . -B $(WEB_BUILD) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(WEB_BUILD) -j $(JOBS)

# The node program against the native one on every demo input and the
# integration banks, the zip writer, then the page in headless Chromium.
test-web:
	$(DEPS) web-test
	$(MAKE) build web-build
	./tools/dls-fixtures.sh $(BUILD)/integration-inputs
	SORVANE_NATIVE=$(BUILD)/sorvane SORVANE_WEB_BUILD=$(WEB_BUILD) SORVANE_FIXTURES=$(BUILD)/integration-inputs \
		node web/test/conformance.mjs
	SORVANE_NATIVE=$(BUILD)/sorvane SORVANE_WEB_BUILD=$(WEB_BUILD) node web/test/page.mjs

# Plants small faults one at a time into a scratch copy of the tree (under
# /tmp), rebuilds it and reports the share the quick tests catch. The same
# MUTANTS and MUTATION_SEED draw the same faults.
MUTANTS       ?= 300
MUTATION_SEED ?= 13
mutate:
	$(DEPS) mutate
	python3 tools/mutate.py --sample $(MUTANTS) --seed $(MUTATION_SEED) --jobs 2

# Every fuzz target for FUZZ_SECONDS each (clang, libFuzzer, ASan + UBSan).
FUZZ_SECONDS ?= 60
fuzz:
	$(DEPS) fuzz
	./tools/fuzz.sh $(FUZZ_SECONDS)

demo: program
	./tools/demo.sh $(BUILD)/sorvane

# The program (stripped), its manual page, its bash completion, the README,
# the copyright file and the demo inputs under $(DESTDIR)$(PREFIX). It builds
# first, except as root in a checkout that a user owns (sudo make install):
# there it installs what that user built, and builds nothing into their
# build folder. uninstall removes the files again.
install:
	@if ./tools/install.sh --may-build; then $(MAKE) --no-print-directory program; fi
	DESTDIR="$(DESTDIR)" ./tools/install.sh "$(BUILD)" "$(PREFIX)"

uninstall:
	DESTDIR="$(DESTDIR)" ./tools/uninstall.sh "$(PREFIX)"

# A Debian package of the same files under /usr, with its changelog:
# $(BUILD)/sorvane_<version>-<revision>_<arch>.deb.
deb:
	$(DEPS) package
	$(MAKE) program
	cd $(BUILD) && cpack -G DEB

bench:
	$(DEPS) bench
	$(MAKE) build
	./bench/run_all.sh $(BUILD)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(WEB_BUILD) build-fuzz out
