# make demo  - install what is missing, build the program, run a demo session
# make install - install the program, man page, examples and docs (PREFIX /usr/local)
# make package - a Debian package of the same (build/ixmod_*.deb)
# make test  - install what is missing, build, run all tests (also under ASan/UBSan)
# make bench - timing benchmark: schedule lateness, display and key latency
# make soak  - a session of 30 minutes and 20 sessions killed at random
#              moments: memory, lateness, lost presses, drift, files left
# make fuzz  - build the libFuzzer targets with clang and run each for FUZZ_SECONDS (60)
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
BUILD_TYPE ?= RelWithDebInfo

PREFIX ?= /usr/local

.PHONY: all deps configure build build-asan build-fuzz demo install package test bench soak fuzz clean

all: build

deps:
	@scripts/install-deps.sh

configure: deps
	@cmake -S . -B build -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) >/dev/null

build: configure
	@cmake --build build -j$(JOBS)

build-asan: deps
	@cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DIXMOD_SANITIZE=ON >/dev/null
	@cmake --build build-asan -j$(JOBS)

# Only the program and the scripted participant: no tests, no tools.
demo: configure
	@cmake --build build -j$(JOBS) --target ixmod ixmod_participant >/dev/null
	@scripts/demo.sh

install: configure
	@cmake --build build -j$(JOBS) --target ixmod ixmod_man >/dev/null
	@cmake --install build --prefix $(PREFIX)

package: configure
	@cmake --build build -j$(JOBS) --target ixmod ixmod_man >/dev/null
	@cd build && cpack -G DEB

test: build build-asan
	@cd build && ctest -j$(JOBS) --output-on-failure
	@cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest -j$(JOBS) --output-on-failure

bench: build
	@scripts/bench.sh

soak: build
	@scripts/soak.sh

build-fuzz: deps
	@CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DIXMOD_FUZZ=ON >/dev/null
	@cmake --build build-fuzz -j$(JOBS)

fuzz: build-fuzz
	@scripts/fuzz.sh

clean:
	rm -rf build build-asan build-fuzz
