# Front door over CMake. `make test` and `make run` do all set-up on a fresh
# Debian 12 machine; the other targets are for day-to-day work.
PRESET ?= default
BUILD_DIR := $(if $(filter default,$(PRESET)),build,build-$(PRESET))
JOBS ?= $(shell nproc)

.PHONY: all deps configure build test run asan tsan fuzz bench clean install fleet-demo

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

tsan:
	@$(MAKE) --no-print-directory test PRESET=tsan

# Runs each fuzz target for FUZZ_SECONDS, starting from its seed corpus under
# tests/fuzz/corpus/; new inputs go to build-fuzz/fuzz-corpus/, never into
# the source tree.
FUZZ_SECONDS ?= 60
fuzz: deps
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz -j $(JOBS)
	@for fuzzer in build-fuzz/tests/fuzz/*_fuzzer; do \
	  target=$$(basename $$fuzzer _fuzzer); \
	  mkdir -p build-fuzz/fuzz-corpus/$$target; \
	  echo "fuzz: $$target for $(FUZZ_SECONDS) s"; \
	  $$fuzzer -max_total_time=$(FUZZ_SECONDS) -timeout=10 -print_final_stats=1 \
	    build-fuzz/fuzz-corpus/$$target tests/fuzz/corpus/$$target || exit 1; \
	done

run: build
	@scripts/run-demo $(BUILD_DIR)

# The fleet path on one machine: nats-server, lumvane run, upload, collect,
# report (scripts/fleet-demo).
fleet-demo: build
	@scripts/fleet-demo $(BUILD_DIR)

clean:
	rm -rf build build-asan build-tsan build-fuzz

# Installs the programs, liblumvane-signpost with its headers and pkg-config
# file, the systemd unit and the sysusers.d entry under PREFIX, staged under
# DESTDIR when set (for packaging).
PREFIX ?= /usr/local
install: deps
	@cmake --preset $(PRESET) -DCMAKE_INSTALL_PREFIX=$(PREFIX) >/dev/null
	@cmake --build --preset $(PRESET) -j $(JOBS) \
	  --target lumvaned lumvane lumvane-signpost lumvane_signpost
	@cmake --install $(BUILD_DIR)
