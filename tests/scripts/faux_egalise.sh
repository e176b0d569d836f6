#!/bin/bash
# A stand-in for `egalise mosaique` that runs the phase scripts' steps without computing: appends
# "ETAPE INDEX PARTIE [word][word]..." (the job's words without the step's own options) to the file
# $FAUX_JOURNAL, fails with status 3 at the step named by $FAUX_ECHEC, and writes -o at "assembler".
etape= index= partie= sortie= mots=()
while [ $# -gt 0 ]; do
  case "$1" in
    --etape) etape=$2; shift ;;
    --index) index=$2; shift ;;
    --partie) partie=$2; shift ;;
    --travail) shift ;;
    -o) sortie=$2; mots+=("$1" "$2"); shift ;;
    *) mots+=("$1") ;;
  esac
  shift
done
echo "$etape $index $partie $(printf '[%s]' "${mots[@]}")" >> "$FAUX_JOURNAL"
[ "$etape" != "${FAUX_ECHEC:-}" ] || exit 3
[ "$etape" != assembler ] || echo mosaique > "$sortie"
