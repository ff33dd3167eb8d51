# Front door over CMake. `make test` and `make run` do all set-up on a fresh
# Debian 12 machine; the other targets are for day-to-day work.
PRESET ?= default
BUILD_DIR := $(if $(filter asan,$(PRESET)),build-asan,build)
JOBS ?= $(shell nproc)

.PHONY: all deps configure build test run asan bench clean fleet-demo

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

# The fleet path on one machine: nats-server, lumvane run, upload, collect,
# report (scripts/fleet-demo).
fleet-demo: build
	@scripts/fleet-demo $(BUILD_DIR)

clean:
	rm -rf build build-asan
