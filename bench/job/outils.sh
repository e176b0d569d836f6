# Shared by the bench/job scripts (sourced): the tools they need, and GNU time's report as one line.

# verifier_outils <script name>: EGALISE and GENERER from BUILD; stops when a tool is missing.
verifier_outils() {
  EGALISE="$BUILD/egalise"
  GENERER="$BUILD/examples/generer_demo"
  for f in "$EGALISE" "$GENERER" /usr/bin/time; do
    [ -x "$f" ] || { echo "$1: $f missing (build first; scripts/deps.sh bench)" >&2; exit 1; }
  done
  command -v gdalwarp > /dev/null || { echo "$1: gdalwarp missing (scripts/deps.sh bench)" >&2; exit 1; }
}

# donnees <set> <grid> <size> <bands>: makes the set in $TRAVAIL with the demo generator unless its
# description is already there; the generation's time in $TRAVAIL/<set>.generation.
donnees() {
  entete="# $2 x $2 GeoTIFF tiles of $3 x $3 x $4 bands"
  if ! grep -q "^$entete" "$TRAVAIL/$1/distorsions.txt" 2> /dev/null; then
    rm -rf "${TRAVAIL:?}/$1"
    echo "bench: making $1 ($2 x $2 tiles of $3 x $3 x $4)" >&2
    /usr/bin/time -f "%e s" -o "$TRAVAIL/$1.generation" \
      "$GENERER" "$TRAVAIL/$1" --geotiff --grille "$2" --taille "$3" --bandes "$4" > /dev/null
  fi
}

# resume_time <file of /usr/bin/time -v> <label>: prints "<label> <wall s> <peak RSS KB> <CPU s>".
resume_time() {
  awk -v nom="$2" '
    /Elapsed \(wall clock\)/ { n = split($NF, t, ":"); s = 0; for (i = 1; i <= n; i++) s = s * 60 + t[i] }
    /Maximum resident set size/ { m = $NF }
    /User time|System time/ { cpu += $NF }
    END { print nom, s, m, cpu }' "$1"
}

# The awk function median(a, n) of a[1..n] (sorts a), to put before an awk program.
AWK_MEDIANE='
  function median(a, n,   i, j, x) {
    for (i = 2; i <= n; i++) { x = a[i]; for (j = i - 1; j >= 1 && a[j] > x; j--) a[j + 1] = a[j]; a[j + 1] = x }
    return n % 2 ? a[(n + 1) / 2] : (a[n / 2] + a[n / 2 + 1]) / 2
  }'
