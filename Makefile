# make            the program, at build/corvane
# make install    copies what is built below PREFIX (/usr/local); DESTDIR is put before it
# make uninstall  removes the same files
# make demo       the main job, shown on a private audio server: needs no desktop session
# make check      every test: release, address and undefined-behaviour sanitizers, thread sanitizer
# make soak       what takes longer: every test under pointer checks, then random capture graphs for MINUTES (10)
# make bench      the measurements of docs/performance.md
# make format     the sources, formatted
# make clean      removes the build folders
#
# What a target needs and this machine lacks is installed first, which takes root or sudo:
# scripts/install-dependencies says what, and does nothing where all is there.

JOBS ?= $(shell nproc)
PREFIX ?= /usr/local

.PHONY: all help demo check check-release check-asan check-tsan bench soak format install uninstall clean

all:
	@scripts/install-dependencies build
	@cmake --preset release -DCORVANE_TESTS=OFF >/dev/null
	@cmake --build --preset release -j $(JOBS)

help:
	@sed -n '/^#/!q; s/^# \{0,1\}//p' Makefile

install:
	@scripts/install '$(PREFIX)'

uninstall:
	@scripts/install --remove '$(PREFIX)'

demo:
	@scripts/install-dependencies build test demo
	@cmake --preset release -DCORVANE_TESTS=ON >/dev/null
	@cmake --build --preset release -j $(JOBS) --target corvane-demo
	@scripts/demo build

check: check-release check-asan check-tsan

check-release check-asan check-tsan: check-%:
	@scripts/install-dependencies build test
	@scripts/check $*

bench:
	@scripts/install-dependencies build test bench
	@scripts/bench

soak:
	@scripts/install-dependencies build test
	@scripts/check ubsan
	@scripts/soak $(or $(MINUTES),10)

format:
	@git ls-files 'src/*.h' 'src/*.cpp' 'tests/*.h' 'tests/*.cpp' 'tests/*.c' 'bench/*.cpp' 'demo/*.cpp' | xargs clang-format -i

clean:
	@rm -rf build build-asan build-tsan build-ubsan build-bench
