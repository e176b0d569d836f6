# Entry points for a new user: `make demo` and `make test` (see README.md).
BUILD ?= build
ASAN ?= build-asan
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps build build-asan test test-cluster demo bench qualite fuzz clean
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

# Then the SLURM chain on a one-node cluster, where this machine can run one (see test-cluster).
test: build build-asan
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)
	ctest --test-dir $(ASAN) --output-on-failure -j $(JOBS)
	./scripts/deps.sh cluster || echo "make test: SLURM and munge not installed"
	timeout -k 60 900 ./scripts/slurm/test_grappe.sh --si-possible $(BUILD)

# A one-node SLURM cluster on this machine (root; munged, slurmctld, slurmd started and stopped by the
# script): the chain of scripts/slurm/ on it, and the same phases through scripts/phases_parallel.sh.
test-cluster: build
	./scripts/deps.sh cluster
	./scripts/slurm/test_grappe.sh $(BUILD)

# The demo, both front ends on generated data in demo/ (see README.md):
# - egalise mosaique on 3 x 3 RGB GeoTIFF tiles (demo/tuiles), equalized and not, with its report;
# - the compatibility mode on 3 x 3 8-bit tiles, with and without equalization, mean and Voronoi fusion,
#   the console output of each run in the .txt file of the same name;
# and a PNG quick-look of each mosaic, plus side-by-side "before / after" ones.
DEMO_TUILES = $(foreach l,0 1 2,$(foreach c,0 1 2,tuile_$(l)_$(c).tif))
DEMO_EGALISE = $(abspath $(BUILD))/egalise
DEMO_COMPATIBLE = $(DEMO_EGALISE) $(DEMO_TUILES) --pas 10
DEMO_APERCU = $(abspath $(BUILD))/examples/apercu
demo: build
	rm -rf demo
	$(BUILD)/examples/generer_demo demo
	$(BUILD)/examples/generer_demo demo/tuiles --geotiff
	cd demo && $(DEMO_EGALISE) mosaique tuiles/*.tif -o mosaique_rgb.tif --rapport rapport.json
	cd demo && $(DEMO_EGALISE) mosaique tuiles/*.tif -o mosaique_rgb_noegal.tif --noegal
	cd demo && for m in mosaique_rgb mosaique_rgb_noegal; do $(DEMO_APERCU) $$m.tif $$m.png; done
	cd demo && $(DEMO_APERCU) mosaique_rgb_noegal.tif mosaique_rgb.tif avant_apres_rgb.png --reduction 2
	cd demo && $(DEMO_COMPATIBLE) --noegal --output sans_egalisation.tif > sans_egalisation.txt
	cd demo && $(DEMO_COMPATIBLE) --noegal --fusion:voronoi --output sans_egalisation_voronoi.tif > sans_egalisation_voronoi.txt
	cd demo && $(DEMO_COMPATIBLE) --output mosaique.tif > mosaique.txt
	cd demo && $(DEMO_COMPATIBLE) --fusion:voronoi --output mosaique_voronoi.tif > mosaique_voronoi.txt
	cd demo && for m in sans_egalisation sans_egalisation_voronoi mosaique mosaique_voronoi; do $(DEMO_APERCU) $$m.tif $$m.png; done
	cd demo && $(DEMO_APERCU) sans_egalisation_voronoi.tif mosaique_voronoi.tif avant_apres.png --reduction 2
	@echo "demo: tiles, mosaics, report and PNG quick-looks in demo/ (see README.md)"

bench:
	./scripts/deps.sh bench
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DZEPRA_BENCH=ON $(CMAKE_FLAGS)
	cmake --build $(BUILD) -j $(JOBS)
	cd $(BUILD)/bench && for b in ./bench_*; do $$b; done
	./bench/job/bench_job.sh $(BUILD)

# The equalization quality benchmark (not timed): known-truth presets through the compatibility models
# and the new one, the table of bench/README.md and its quick-looks. QUALITE_ARGS passes options
# (--preset NAME, --balayage, --essai "...").
QUALITE_DIR ?= /tmp/egalise_qualite
QUALITE_ARGS ?= --apercu bench/qualite
qualite:
	./scripts/deps.sh bench
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DZEPRA_BENCH=ON $(CMAKE_FLAGS)
	cmake --build $(BUILD) -j $(JOBS) --target egalise qualite_egalisation
	$(BUILD)/bench/qualite/qualite_egalisation $(BUILD)/egalise $(QUALITE_DIR) $(QUALITE_ARGS)

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
