# Entry points for a new user: `make demo` and `make test` (see README.md).
BUILD ?= build
ASAN ?= build-asan
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps build build-asan test demo bench fuzz clean

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

clean:
	rm -rf $(BUILD) $(ASAN) demo
