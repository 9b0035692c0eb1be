# make          the program, at build/corvane
# make demo     the main job, shown on a private audio server: needs no desktop session
# make check    every test: release, address and undefined-behaviour sanitizers, thread sanitizer
# make bench    the measurements of docs/performance.md
# make soak     random capture graphs for MINUTES (10), and the worst that was heard
# make format   the sources, formatted
#
# All of them install what is missing first (scripts/install-dependencies; root or sudo), where that is needed.

JOBS ?= $(shell nproc)

.PHONY: all demo check check-release check-asan check-tsan bench soak format dependencies install clean

all: dependencies
	@cmake --preset release -DCORVANE_TESTS=OFF >/dev/null
	@cmake --build --preset release -j $(JOBS)

dependencies:
	@scripts/install-dependencies

demo: dependencies
	@cmake --preset release -DCORVANE_TESTS=ON >/dev/null
	@cmake --build --preset release -j $(JOBS)
	@scripts/demo build

check: check-release check-asan check-tsan

check-release: dependencies
	@scripts/check release

check-asan: dependencies
	@scripts/check asan

check-tsan: dependencies
	@scripts/check tsan

bench: dependencies
	@scripts/bench

soak: dependencies
	@scripts/soak $(or $(MINUTES),10)

format:
	@git ls-files 'src/*.h' 'src/*.cpp' 'tests/*.h' 'tests/*.cpp' 'tests/*.c' 'bench/*.cpp' 'demo/*.cpp' | xargs clang-format -i

install: all
	@cmake --install build

clean:
	@rm -rf build build-asan build-tsan build-bench
