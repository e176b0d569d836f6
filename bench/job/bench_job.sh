#!/bin/sh
# The whole mosaic job (default options: equalization, corrected images, mean fusion) on 16 tiles of
# 3000 x 3000 (8-bit, 4 x 4, 20 % overlap), beside gdalwarp composing the same tiles at the same output
# pixel size. Wall time and peak memory of both by GNU time, in the same run, alternating.
#
#   bench/job/bench_job.sh [build folder (build)] [work folder (/tmp/egalise_bench_job)] [runs (5)]
#
# The tiles are made once by the demo generator and kept in the work folder (about 140 MB; the run
# writes about 900 MB more there). Needs gdal-bin and time (scripts/deps.sh bench).
set -e
BUILD=$(cd "${1:-build}" && pwd)
TRAVAIL=${2:-/tmp/egalise_bench_job}
RUNS=${3:-5}
. "$(dirname "$0")/outils.sh"
verifier_outils bench_job

TUILES=""
for l in 0 1 2 3; do for c in 0 1 2 3; do TUILES="$TUILES tuile_${l}_${c}.tif"; done; done
# The data set is made again only when it is not the one described here.
ENTETE="# 4 x 4 tiles of 3000 x 3000 pixels of 0.5 m, 600 pixels of overlap"
if ! grep -q "^$ENTETE" "$TRAVAIL/distorsions.txt" 2> /dev/null; then
  rm -rf "$TRAVAIL"
  "$GENERER" "$TRAVAIL" --grille 4 --taille 3000 --recouvrement 0.2 --pixel 0.5
fi
cd "$TRAVAIL"

# Numbers from the CARTO orientation files: line 4 holds columns and lines, line 5 the steps in mm.
taille_ori() { awk 'NR == 4 { print $1 * $2 }' "$1"; }
# The job's mosaic pixel: the mean of the first image's two steps times the default --ssechfinal 2.
PIXEL=$(awk 'NR == 5 { print ($1 + $2) / 2 / 1000 * 2 }' Ort_tuile_0_0.ori)

# mesure <name> <command...>: runs it under GNU time; appends "<name> <wall s> <peak RSS KB> <CPU s>".
mesure() {
  nom=$1
  shift
  /usr/bin/time -v -o "$nom.time" "$@" > "$nom.out" 2>&1 || { echo "bench_job: $nom failed, see $TRAVAIL/$nom.out" >&2; exit 1; }
  resume_time "$nom.time" "$nom" >> mesures.txt
}

: > mesures.txt
i=1
while [ "$i" -le "$RUNS" ]; do
  # shellcheck disable=SC2086
  mesure egalise "$EGALISE" $TUILES
  # shellcheck disable=SC2086
  mesure gdalwarp gdalwarp -q -overwrite -ot Float32 -srcnodata 0 -dstnodata 0 -tr "$PIXEL" "$PIXEL" \
    $(for t in $TUILES; do echo "Ort_$t"; done) gdalwarp.tif
  i=$((i + 1))
done

ENTREES=0
for t in $TUILES; do ENTREES=$((ENTREES + $(taille_ori "Ort_${t%.tif}.ori") * 4)); done
MOSAIQUE=$(($(taille_ori big_image.ori) * 4))
charge=$(cut -d' ' -f1-3 /proc/loadavg)
awk -v runs="$RUNS" -v entrees="$ENTREES" -v mosaique="$MOSAIQUE" -v pixel="$PIXEL" -v charge="$charge" "$AWK_MEDIANE"'
  { k = ++n[$1]; t[$1, k] = $2; u[$1, k] = $4; if ($3 > m[$1]) m[$1] = $3; liste[$1] = liste[$1] " " $2 }
  END {
    for (c in n) {
      for (k = 1; k <= n[c]; k++) x[k] = t[c, k]
      med[c] = median(x, n[c])
      for (k = 1; k <= n[c]; k++) x[k] = u[c, k]
      cpu[c] = median(x, n[c])
    }
    mo = 1024 * 1024
    printf "mosaic pixel %s m; load average before the summary: %s\n", pixel, charge
    printf "| command | wall time, median of %d (s) | runs (s) | CPU user + sys, median (s) | peak RSS (MiB) |\n", runs
    printf "| --- | --- | --- | --- | --- |\n"
    printf "| egalise, default options | %.2f |%s | %.2f | %.0f |\n", med["egalise"], liste["egalise"], cpu["egalise"],
           m["egalise"] / 1024
    printf "| gdalwarp | %.2f |%s | %.2f | %.0f |\n", med["gdalwarp"], liste["gdalwarp"], cpu["gdalwarp"], m["gdalwarp"] / 1024
    printf "wall time ratio egalise / gdalwarp: %.2f (target <= 2); CPU time ratio: %.2f\n", med["egalise"] / med["gdalwarp"],
           cpu["egalise"] / cpu["gdalwarp"]
    printf "inputs as float %.0f MiB + mosaic %.0f MiB = %.0f MiB; egalise peak / that: %.2f (target <= 1.5)\n",
           entrees / mo, mosaique / mo, (entrees + mosaique) / mo, m["egalise"] * 1024 / (entrees + mosaique)
  }' mesures.txt | tee resultats.txt
