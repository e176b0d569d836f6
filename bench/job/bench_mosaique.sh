#!/bin/sh
# egalise mosaique beside gdalwarp on generated GeoTIFF tiles, in the same run, alternating: wall time,
# processor time and peak resident memory of each command by GNU time.
#
#   bench/job/bench_mosaique.sh [--grand] [build folder (build)] [work folder (/tmp/egalise_bench_mosaique)] [runs (3)]
#
# Sets (made once by the demo generator, kept in the work folder; 20 % overlap, 0.5 m, EPSG:2154,
# no-data 0, Deflate with the predictor, tiles of 256):
#   rgb16    16 tiles of 3000 x 3000 x 3 bands (4 x 4), outputs Deflate (predictor 2, tiled)
#   gris36   36 tiles of 4000 x 4000 x 1 band (6 x 6), outputs uncompressed and tiled
#   gris256  with --grand only: 256 tiles of 4000 x 4000 x 1 band (16 x 16, 4.1 G pixels; about
#            3 GB of tiles, 2.7 GB per mosaic; the generation alone takes tens of minutes)
# Commands per set: gdalwarp -multi -wo NUM_THREADS=ALL_CPUS (nearest neighbour, the inputs' pixel),
# egalise mosaique (equalized, default options) and egalise mosaique --noegal. Results in
# <work folder>/resultats.md. JEUX="rgb16" (say) runs only the sets named. Needs gdal-bin and time
# (scripts/deps.sh bench).
set -e
GRAND=0
if [ "$1" = "--grand" ]; then GRAND=1; shift; fi
BUILD=$(cd "${1:-build}" && pwd)
TRAVAIL=${2:-/tmp/egalise_bench_mosaique}
RUNS=${3:-3}
. "$(dirname "$0")/outils.sh"
verifier_outils bench_mosaique
mkdir -p "$TRAVAIL"

# mesure <set> <name> <command...>: runs it under GNU time in the set's folder; appends
# "<set> <name> <wall s> <peak RSS KB> <CPU s>" to mesures.txt.
mesure() {
  jeu=$1
  nom=$2
  shift 2
  rm -f "$TRAVAIL/$jeu/sorties/$nom.tif"
  (cd "$TRAVAIL/$jeu" && /usr/bin/time -v -o "../$jeu.$nom.time" "$@" > "../$jeu.$nom.out" 2>&1) ||
    { echo "bench_mosaique: $jeu $nom failed, see $TRAVAIL/$jeu.$nom.out" >&2; return 1; }
  resume_time "$TRAVAIL/$jeu.$nom.time" "$jeu $nom" >> "$TRAVAIL/mesures.txt"
}

# lancer <set> <gdalwarp creation options> <egalise options>: the three commands, RUNS times, alternating.
lancer() {
  jeu=$1
  mkdir -p "$TRAVAIL/$jeu/sorties"
  tuiles=$(cd "$TRAVAIL/$jeu" && echo tuile_*.tif)
  i=1
  while [ "$i" -le "$RUNS" ]; do
    # shellcheck disable=SC2086
    mesure "$jeu" gdalwarp gdalwarp -q -overwrite -multi -wo NUM_THREADS=ALL_CPUS -srcnodata 0 -dstnodata 0 \
      $2 $tuiles sorties/gdalwarp.tif
    # shellcheck disable=SC2086
    mesure "$jeu" egalise "$EGALISE" mosaique $tuiles -o sorties/egalise.tif --quiet $3 || true
    # shellcheck disable=SC2086
    mesure "$jeu" noegal "$EGALISE" mosaique $tuiles -o sorties/noegal.tif --quiet --noegal $3 || true
    i=$((i + 1))
  done
}

: > "$TRAVAIL/mesures.txt"
JEUX=${JEUX:-rgb16 gris36}
case " $JEUX " in *" rgb16 "*)
  donnees rgb16 4 3000 3
  lancer rgb16 "-co COMPRESS=DEFLATE -co PREDICTOR=2 -co TILED=YES" "" ;;
esac
case " $JEUX " in *" gris36 "*)
  donnees gris36 6 4000 1
  lancer gris36 "-co TILED=YES" "--compression none" ;;
esac
if [ "$GRAND" = 1 ]; then
  donnees gris256 16 4000 1
  RUNS=1 lancer gris256 "-co TILED=YES -co BIGTIFF=YES" "--compression none"
fi

charge=$(cut -d' ' -f1-3 /proc/loadavg)
awk -v runs="$RUNS" -v charge="$charge" -v gdal="$(gdalwarp --version)" "$AWK_MEDIANE"'
  { c = $1 SUBSEP $2; k = ++n[c]; t[c, k] = $3; u[c, k] = $5; if ($4 > m[c]) m[c] = $4; liste[c] = liste[c] " " $3
    if (!($1 in vu)) { vu[$1] = 1; jeux[++nj] = $1 } }
  END {
    for (c in n) {
      for (k = 1; k <= n[c]; k++) x[k] = t[c, k]
      med[c] = median(x, n[c])
      for (k = 1; k <= n[c]; k++) x[k] = u[c, k]
      cpu[c] = median(x, n[c])
    }
    printf "%s; load average after the runs: %s\n\n", gdal, charge
    printf "| set | command | wall time, median (s) | runs (s) | CPU user + sys, median (s) | peak RSS (MiB) |\n"
    printf "| --- | --- | --- | --- | --- | --- |\n"
    for (j = 1; j <= nj; j++)
      for (q = 1; q <= 3; q++) {
        nom = q == 1 ? "gdalwarp" : q == 2 ? "egalise" : "noegal"
        c = jeux[j] SUBSEP nom
        if (!(c in n)) continue
        printf "| %s | %s | %.2f |%s | %.2f | %.0f |\n", jeux[j], nom, med[c], liste[c], cpu[c], m[c] / 1024
      }
    printf "\n| set | egalise / gdalwarp, time | egalise / gdalwarp, peak RSS | noegal / gdalwarp, time | egalise / noegal, time |\n"
    printf "| --- | --- | --- | --- | --- |\n"
    for (j = 1; j <= nj; j++) {
      g = jeux[j] SUBSEP "gdalwarp"; e = jeux[j] SUBSEP "egalise"; s = jeux[j] SUBSEP "noegal"
      if (!(e in n) || !(s in n)) continue
      printf "| %s | %.2f | %.2f | %.2f | %.2f |\n", jeux[j], med[e] / med[g], m[e] / m[g], med[s] / med[g], med[e] / med[s]
    }
  }' "$TRAVAIL/mesures.txt" | tee "$TRAVAIL/resultats.md"
