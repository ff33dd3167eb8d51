# Front door over CMake. `make test` and `make run` do all set-up on a fresh
# Debian 12 machine; the other targets are for day-to-day work.
PRESET ?= default
BUILD_DIR := $(if $(filter asan,$(PRESET)),build-asan,build)
JOBS ?= $(shell nproc)

.PHONY: all deps configure build test run asan bench clean install

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake --preset $(PRESET) >/dev/null

build: configure
	@cmake --build --preset $(PRESET) -j $(JOBS)

test: build
	@ctest --preset $(PRESET) -j $(JOBS)

asan:
	@$(MAKE) --no-print-directory test PRESET=asan

run: build
	@scripts/run-demo $(BUILD_DIR)

clean:
	rm -rf build build-asan

# Installs the programs, liblumvane-signpost with its headers and pkg-config
# file, the systemd unit and the sysusers.d entry under PREFIX, staged under
# DESTDIR when set (for packaging).
PREFIX ?= /usr/local
install: deps
	@cmake --preset $(PRESET) -DCMAKE_INSTALL_PREFIX=$(PREFIX) >/dev/null
	@cmake --build --preset $(PRESET) -j $(JOBS) \
	  --target lumvaned lumvane lumvane-signpost lumvane_signpost
	@cmake --install $(BUILD_DIR)
