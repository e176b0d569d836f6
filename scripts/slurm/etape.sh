#!/bin/bash
# One step of `egalise mosaique` in a SLURM job (submitted by soumettre.sh, which see):
#   etape.sh EGALISE TRAVAIL ETAPE PARTIES -- IMAGE... [OPTION]...
# In an array job the task number is the input of "observer" and the part K of "composer" (K/PARTIES).
set -eu
egalise=$1 travail=$2 etape=$3 parties=$4
shift 5
case "$etape" in
  observer) exec "$egalise" mosaique "$@" --travail "$travail" --etape observer --index "$SLURM_ARRAY_TASK_ID" ;;
  composer)
    exec "$egalise" mosaique "$@" --travail "$travail" --etape composer --partie "$SLURM_ARRAY_TASK_ID/$parties" ;;
  *) exec "$egalise" mosaique "$@" --travail "$travail" --etape "$etape" ;;
esac
