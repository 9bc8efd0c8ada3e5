# TalvoPlayer: the two commands that matter are `make run` and `make test`.
# BUILD=dir chooses the build folder; SANITIZE=1 builds with ASan and UBSan.

SANITIZE ?= 0
ifeq ($(SANITIZE),1)
BUILD ?= build-asan
CMAKE_FLAGS += -DTALVO_SANITIZE=ON
else
BUILD ?= build
endif
JOBS ?= $(shell nproc)
# Where `make install` puts the player (DESTDIR=... stages a package).
PREFIX ?= /usr/local
CTEST_ARGS ?=

.PHONY: all deps configure build install run test bench fuzz soak format screenshots accessibility clean

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
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) $(CTEST_ARGS)

bench: build
	@scripts/bench.sh $(BUILD)

fuzz: deps
	@scripts/fuzz.sh long

soak: build
	cd $(BUILD) && ctest --output-on-failure -L soak -C soak

screenshots: build
	$(BUILD)/bin/talvo-screenshots $(BUILD)/screenshots $(BUILD)/demo/music

accessibility: build
	scripts/check-accessibility.sh $(BUILD)

format:
	git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format -i

clean:
	rm -rf build build-asan build-fuzz
