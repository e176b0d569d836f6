# Entry points for a new user: `make demo` and `make test` (see README.md).
BUILD ?= build
ASAN ?= build-asan
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps build build-asan test demo bench fuzz clean
FUZZ ?= build-fuzz
FUZZ_SECONDS ?= 600

all: build

deps:
	./scripts/deps.sh

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DZEPRA_WERROR=ON $(CMAKE_FLAGS)
	cmake --build $(BUILD) -j $(JOBS)

# The same code and tests under AddressSanitizer and UndefinedBehaviorSanitizer.
build-asan: deps
	cmake -S . -B $(ASAN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZEPRA_WERROR=ON -DZEPRA_SANITIZE=ON $(CMAKE_FLAGS)
	cmake --build $(ASAN) -j $(JOBS)

test: build build-asan
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)
	ctest --test-dir $(ASAN) --output-on-failure -j $(JOBS)

demo: build
	mkdir -p demo
	cd demo && ../$(BUILD)/egalise

bench:
	./scripts/deps.sh bench
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DZEPRA_BENCH=ON $(CMAKE_FLAGS)
	cmake --build $(BUILD) -j $(JOBS)
	cd $(BUILD)/bench && for b in ./bench_*; do $$b; done

# A longer libFuzzer campaign on every target, FUZZ_SECONDS each, starting from the committed corpus.
# New inputs stay in fuzz-runs/; crashes are written there as crash-* files.
fuzz: deps
	cmake -S . -B $(FUZZ) -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZEPRA_FUZZ=ON
	cmake --build $(FUZZ) -j $(JOBS)
	set -e; for f in $(FUZZ)/tests/fuzz/fuzz_*; do \
	  n=$$(basename $$f); mkdir -p fuzz-runs/$$n; \
	  cp -n tests/fuzz/corpus/$${n#fuzz_}/* fuzz-runs/$$n/ 2>/dev/null || true; \
	  (cd fuzz-runs/$$n && ../../$$f . -max_total_time=$(FUZZ_SECONDS) -rss_limit_mb=2048 -artifact_prefix=./); \
	done

clean:
	rm -rf $(BUILD) $(ASAN) $(FUZZ) demo fuzz-runs
