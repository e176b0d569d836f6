#!/bin/bash
# Submits `egalise mosaique` to SLURM in one command, as its four steps chained by dependencies:
#   scripts/slurm/soumettre.sh --travail DIR [--parties P] [--cpus C] [--temps MINUTES] [--egalise EXE]
#       [--memoire-resoudre MIO] [--attendre] -- IMAGE... -o MOSAIQUE.tif [OPTION]...
# observer: an array job, one task per input; resoudre: one task once every observation succeeded;
# composer: an array of P tasks (default 4), one band of output tiles each; assembler: one task that
# writes -o. DIR is the work folder the steps share: on a file system every node sees, as are the
# images, the mosaic and EXE (default: egalise on the PATH). IMAGE and OPTION as for `egalise
# mosaique`, images first. Each task asks C CPUs (default 1) and runs with --threads C unless
# --threads is given; it asks --memoire (default 1024 MiB) plus the margin below; MINUTES is its time
# limit (default: the partition's). The solve holds the block statistics and observations of every
# overlap at once, within half of --memoire (the blocks grow beyond it unless --bloc is given);
# --memoire-resoudre MIO is what its task asks instead (with blocks of 16 and overlaps of 20 % on
# each side, about 0.3 MiB per million input pixels of three bands, 0.2 of one). Partition,
# account and the like come from sbatch's environment (SBATCH_PARTITION, SBATCH_ACCOUNT, ...). Prints
# the four job ids; with --attendre, waits for the last one and fails unless it completed. A failed
# step cancels the steps after it; submitting again redoes only what is not finished.
set -eu
ici=$(cd "$(dirname "$0")" && pwd)
. "$ici/../phases_commun.sh"

# Memory a task asks beyond --memoire: the program, its buffers outside the ceiling, and each input's
# share (its block statistics and its part of the system).
MARGE_MIO=256
PAR_ENTREE_MIO=4

travail= parties=4 cpus=1 temps= egalise=egalise attendre= memoire_resoudre=
LireOptions "travail parties cpus temps egalise memoire-resoudre" "attendre" "$@"
shift "$LUS"
Entier --parties "$parties"
Entier --cpus "$cpus"
[ -z "$temps" ] || Entier --temps "$temps"
[ -z "$memoire_resoudre" ] || Entier --memoire-resoudre "$memoire_resoudre"
command -v sbatch > /dev/null || Erreur "sbatch introuvable : SLURM n'est pas installe ici"
egalise=$(command -v "$egalise") || Erreur "$egalise introuvable"
LireTravail "$@"
fils=()
[ -n "$THREADS" ] || fils=(--threads "$cpus")
mkdir -p "$travail/slurm"
travail=$(cd "$travail" && pwd)

memoire=$((MEMOIRE + MARGE_MIO + PAR_ENTREE_MIO * NB_ENTREES))
communs=(--parsable --cpus-per-task="$cpus" --kill-on-invalid-dep=yes)
[ -z "$temps" ] || communs+=(--time="$temps")
# sbatch ... ETAPE [ARRAY] [autres options de sbatch]: the job id.
soumettre() {
  local etape=$1 tableau=$2 mio=$memoire
  shift 2
  [ "$etape" != resoudre ] || mio=${memoire_resoudre:-$memoire}
  local sortie="$travail/slurm/$etape-%j.out"
  [ -z "$tableau" ] || sortie="$travail/slurm/$etape-%A_%a.out"
  sbatch "${communs[@]}" --mem="${mio}M" ${tableau:+--array="$tableau"} --job-name="egalise-$etape" --output="$sortie" "$@" \
    "$ici/etape.sh" "$egalise" "$travail" "$etape" "$parties" -- "${mots[@]}" "${fils[@]}"
}
mots=("$@")
observer=$(soumettre observer "1-$NB_ENTREES")
resoudre=$(soumettre resoudre "" --dependency="afterok:$observer")
composer=$(soumettre composer "1-$parties" --dependency="afterok:$resoudre")
# sbatch --wait fails with a failed job but ends well for a job cancelled before it ran: the state tells.
assembler=$(soumettre assembler "" --dependency="afterok:$composer" ${attendre:+--wait}) || [ -n "$assembler" ]
echo "observer $observer, resoudre $resoudre, composer $composer, assembler $assembler"
[ -n "$attendre" ] || exit 0
etat=$(scontrol show job "$assembler" --oneliner | grep -o 'JobState=[A-Z_]*' || true)
if [ "$etat" != JobState=COMPLETED ]; then
  echo "$(basename "$0") : assembler (travail $assembler) ${etat:-introuvable} ; journaux dans $travail/slurm" >&2
  exit 1
fi
