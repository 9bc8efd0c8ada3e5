# TalvoPlayer: the two commands that matter are `make run` and `make test`.
# BUILD=dir chooses the build folder; SANITIZE=1 builds with ASan and UBSan,
# SANITIZE=thread with ThreadSanitizer.

SANITIZE ?= 0
ifeq ($(SANITIZE),1)
BUILD ?= build-asan
CMAKE_FLAGS += -DTALVO_SANITIZE=ON
else ifeq ($(SANITIZE),thread)
BUILD ?= build-tsan
CMAKE_FLAGS += -DTALVO_SANITIZE_THREAD=ON
# Children the tests start (the player, the tools) inherit these too.
# die_after_fork=0: children are started with fork from threaded processes
# (see platform/linux/ThreadSanitizerClone.cpp); the child itself only execs.
TEST_ENV = TSAN_OPTIONS='suppressions=$(CURDIR)/tests/tsan.supp die_after_fork=0 second_deadlock_stack=1'
else
BUILD ?= build
endif
JOBS ?= $(shell nproc)
# Where `make install` puts the player (DESTDIR=... stages a package).
PREFIX ?= /usr/local
CTEST_ARGS ?=

.PHONY: all deps configure build install run test coverage bench fuzz soak format screenshots accessibility clean

all: build

deps:
	@scripts/deps.sh

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)

configure: deps $(BUILD)/build.ninja

build: configure
	cmake --build $(BUILD) -j $(JOBS)

install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

run: build
	@scripts/run-player.sh $(BUILD)

test: build
	cd $(BUILD) && $(TEST_ENV) ctest --output-on-failure -j $(JOBS) $(CTEST_ARGS)

# Line and branch coverage per top-level folder, measured over `make test`.
coverage:
	$(MAKE) build BUILD=build-coverage CMAKE_FLAGS=-DTALVO_COVERAGE=ON
	@scripts/coverage.sh build-coverage $(CTEST_ARGS)

bench: build
	@scripts/bench.sh $(BUILD)

fuzz: deps
	@scripts/fuzz.sh long

# -V: each soak test prints what it counted, which ctest keeps back from a
# passing test.
soak: build
	cd $(BUILD) && ctest -V -L soak -C soak

screenshots: build
	$(BUILD)/bin/talvo-screenshots $(BUILD)/screenshots $(BUILD)/demo/music

accessibility: build
	scripts/check-accessibility.sh $(BUILD)

format:
	git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format -i

clean:
	rm -rf build build-asan build-tsan build-fuzz build-coverage
