#!/bin/sh
# Peak resident memory of egalise mosaique against --memoire, and each stage's peak from --rapport.
#
#   bench/job/bench_memoire.sh [build folder (build)] [work folder (/tmp/egalise_bench_memoire)]
#
# Sets (made once by the demo generator, kept in the work folder; 20 % overlap, 0.5 m, EPSG:2154,
# no-data 0, Deflate, tiles of 256):
#   gris144  144 tiles of 1000 x 1000 x 1 band (12 x 12)
#   rgb16    16 tiles of 2000 x 2000 x 3 bands (4 x 4)
#   rgb64    64 tiles of 1500 x 1500 x 3 bands (8 x 8)
# Every run: --cog --corriges DIR --threads 2 --memoire M, one run each. Prints one table row per run
# (a refusal prints its message); results also in <work folder>/resultats.md.
set -e
BUILD=$(cd "${1:-build}" && pwd)
TRAVAIL=${2:-/tmp/egalise_bench_memoire}
. "$(dirname "$0")/outils.sh"
verifier_outils bench_memoire
mkdir -p "$TRAVAIL"

# run <set> <--memoire>: one table row.
run() {
  d="$TRAVAIL/$1.$2"
  rm -rf "$d" && mkdir -p "$d/corriges"
  if /usr/bin/time -v -o "$d/time" "$EGALISE" mosaique "$TRAVAIL/$1"/*.tif -o "$d/m.tif" --cog \
    --corriges "$d/corriges" --threads 2 --memoire "$2" --rapport "$d/r.json" --quiet > "$d/out" 2>&1; then
    pic=$(resume_time "$d/time" x | awk '{ printf "%.0f", $3 / 1024 }')
    etapes=$(python3 -c "
import json, sys
r = json.load(open(sys.argv[1]))
m = {e['nom']: e['memoire_mio'] for e in r['etapes']}
print(' | '.join('%.0f' % m[k] if k in m else '' for k in ('observation', 'resolution', 'composition', 'images corrigees')))" "$d/r.json")
    echo "| $1 | $2 | $pic | $etapes |"
  else
    echo "| $1 | $2 | refused: $(head -c 200 "$d/out" | tr '\n' ' ') | | | | |"
  fi
  rm -rf "$d/m.tif" "$d/corriges"
}

donnees gris144 12 1000 1
donnees rgb16 4 2000 3
donnees rgb64 8 1500 3
{
  echo "| set | --memoire | peak RSS (MiB) | observation | resolution | composition | corrected images |"
  echo "| --- | --- | --- | --- | --- | --- | --- |"
  run gris144 64
  run gris144 256
  run rgb16 64
  run rgb16 256
  run rgb64 64
  run rgb64 256
  run rgb64 1024
} | tee "$TRAVAIL/resultats.md"
