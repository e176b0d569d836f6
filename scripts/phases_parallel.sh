#!/bin/bash
# The phases of `egalise mosaique` on this machine, their independent steps run side by side by GNU
# parallel: what the SLURM chain of scripts/slurm/ does across machines, without a scheduler.
#   scripts/phases_parallel.sh --travail DIR [--taches J] [--parties P] [--egalise EXE] \
#       -- IMAGE... -o MOSAIQUE.tif [OPTION]...
# J processes at once (default: the cores), P parts of the composition (default: J); IMAGE and
# OPTION as for `egalise mosaique`, images first. Each step gets --threads 1 unless --threads is
# given. Ends at the first failed step with its status.
set -eu
. "$(dirname "$0")/phases_commun.sh"

travail= taches=$(nproc) parties= egalise=egalise
LireOptions "travail taches parties egalise" "" "$@"
shift "$LUS"
Entier --taches "$taches"
parties=${parties:-$taches}
Entier --parties "$parties"
LireTravail "$@"
fils=()
[ -n "$THREADS" ] || fils=(--threads 1)
mkdir -p "$travail"
commande=("$egalise" mosaique "$@" "${fils[@]}" --travail "$travail" --etape)

# -q keeps each word of the command one word; --halt stops at the first failure and passes its status.
parallel --will-cite -q -j "$taches" --halt now,fail=1 "${commande[@]}" observer --index {} ::: $(seq 1 "$NB_ENTREES")
"${commande[@]}" resoudre
parallel --will-cite -q -j "$taches" --halt now,fail=1 "${commande[@]}" composer --partie {}/"$parties" \
  ::: $(seq 1 "$parties")
"${commande[@]}" assembler
