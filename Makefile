# Set-up, build and test on a fresh Debian 12 machine. Every target installs
# the Debian packages it needs first (through sudo when not root).

BUILD_DIR      ?= build
ASAN_BUILD_DIR ?= build-asan
TSAN_BUILD_DIR ?= build-tsan
BENCH_BUILD_DIR?= build-bench
FUZZ_BUILD_DIR ?= build-fuzz
JOBS           ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_FLAGS    ?=

PACKAGES = cmake make g++ pkg-config qtbase5-dev qttools5-dev qttools5-dev-tools libqt5svg5-dev \
           libboost-dev libsqlite3-dev qttranslations5-l10n xvfb xauth x11-utils \
           scdoc dpkg-dev lintian man-db doxygen \
           libcurl4-openssl-dev etcd-server etcd-client \
           libxcb1-dev
# systemd-analyze checks the example service's unit file.
PACKAGES += systemd
BENCH_PACKAGES = libkf5config-dev libpugixml-dev
FUZZ_PACKAGES  = clang libclang-rt-14-dev
DOCS_PACKAGES  = doxygen

SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

define install_missing
	@missing=$$(for p in $(1); do dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q '^install ok installed' || echo $$p; done); \
	if [ -n "$$missing" ]; then \
		echo "Installing:" $$missing; \
		$(SUDO) apt-get update -qq && \
		DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq --no-install-recommends $$missing; \
	fi
endef

.PHONY: all deps build test demo test-asan test-tsan bench fuzz install package docs clean

all: build

deps:
	$(call install_missing,$(PACKAGES))

$(BUILD_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS)

build: deps $(BUILD_DIR)/CMakeCache.txt
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

demo: build
	scripts/run-demo $(BUILD_DIR)

.PHONY: demo-server
demo-server: build
	scripts/run-demo-server $(BUILD_DIR)

test-asan: deps
	cmake -S . -B $(ASAN_BUILD_DIR) -DCMAKE_BUILD_TYPE=Debug -DZENT_SANITIZE=address,undefined $(CMAKE_FLAGS)
	cmake --build $(ASAN_BUILD_DIR) -j $(JOBS)
	cd $(ASAN_BUILD_DIR) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
		UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
		LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp \
		ctest --output-on-failure -j $(JOBS) -LE no-asan

test-tsan: deps
	cmake -S . -B $(TSAN_BUILD_DIR) -DCMAKE_BUILD_TYPE=Debug -DZENT_SANITIZE=thread $(CMAKE_FLAGS)
	cmake --build $(TSAN_BUILD_DIR) -j $(JOBS)
	cd $(TSAN_BUILD_DIR) && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=$(CURDIR)/tests/tsan.supp \
		ctest --output-on-failure -j $(JOBS) -L threads

bench: deps
	$(call install_missing,$(BENCH_PACKAGES))
	cmake -S . -B $(BENCH_BUILD_DIR) -DCMAKE_BUILD_TYPE=Release -DZENT_BUILD_BENCH=ON -DBUILD_TESTING=OFF $(CMAKE_FLAGS)
	cmake --build $(BENCH_BUILD_DIR) -j $(JOBS)
	scripts/run-benchmarks $(BENCH_BUILD_DIR)

fuzz: deps
	$(call install_missing,$(FUZZ_PACKAGES))
	CXX=clang++ cmake -S . -B $(FUZZ_BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZENT_BUILD_FUZZ=ON \
		-DBUILD_TESTING=OFF -DZENT_BUILD_EXAMPLES=OFF $(CMAKE_FLAGS)
	cmake --build $(FUZZ_BUILD_DIR) -j $(JOBS)
	scripts/run-fuzzers $(FUZZ_BUILD_DIR) $${FUZZ_SECONDS:-60}

install: build
	cmake --install $(BUILD_DIR) --prefix $${PREFIX:-/usr/local}

# Debian packages in $(BUILD_DIR)/packages, checked by lintian.
package: build
	cd $(BUILD_DIR) && cpack -G DEB -B packages
	lintian --tag-display-limit 0 $(BUILD_DIR)/packages/*.deb

# The API reference in $(BUILD_DIR)/docs/html; any Doxygen warning fails it.
docs: deps
	$(call install_missing,$(DOCS_PACKAGES))
	@[ -f $(BUILD_DIR)/CMakeCache.txt ] || cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS)
	cmake --build $(BUILD_DIR) --target docs

clean:
	rm -rf $(BUILD_DIR) $(ASAN_BUILD_DIR) $(TSAN_BUILD_DIR) $(BENCH_BUILD_DIR) $(FUZZ_BUILD_DIR)
