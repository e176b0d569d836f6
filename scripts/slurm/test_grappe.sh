#!/bin/bash
# make test-cluster: a one-node SLURM cluster on this machine (as root), the chain of soumettre.sh on
# it, and the same phases through scripts/phases_parallel.sh.
#   scripts/slurm/test_grappe.sh [--si-possible] BUILD
# With --si-possible (make test), a machine where a cluster cannot run (not root, SLURM or munge not
# installed, daemons that do not start) is reported and passes: the same phases are tested through GNU
# parallel in the test suite. Once the cluster runs, every failure counts.
# 1. a trivial job; 2. the chain with a stand-in for egalise that logs its steps: every observation
# before the solve, every part before the assembly, the words of the job on each step; 3. when the
# phases of `egalise mosaique` are built, the real chain and phases_parallel.sh on 2 x 2 generated
# GeoTIFF tiles (300 x 300, 3 bands, EPSG:2154): both mosaics byte-identical to the one-process run.
set -eu
si_possible=0
if [ "${1:-}" = --si-possible ]; then
  si_possible=1
  shift
fi
impossible() {
  echo "test_grappe : $*" >&2
  if [ "$si_possible" = 1 ]; then
    echo "test_grappe : pas de grappe SLURM sur cette machine, test de la chaine SLURM non fait" >&2
    exit 0
  fi
  exit 1
}
build=$(cd "${1:?dossier de construction attendu}" && pwd)
ici=$(cd "$(dirname "$0")" && pwd)
[ "$(id -u)" = 0 ] || impossible "root est necessaire pour demarrer munged, slurmctld et slurmd"
for outil in munged mungekey slurmctld slurmd sbatch sinfo; do
  command -v "$outil" > /dev/null || impossible "$outil introuvable (scripts/deps.sh cluster)"
done
. "$ici/grappe_locale.sh"
t=$(mktemp -d /tmp/egalise_grappe_XXXXXX)
chmod 755 "$t" # munged checks every folder above its socket
trap 'ArreterGrappe "$t/grappe"; rm -rf "$t"' EXIT
# A timeout (make test) ends the script by TERM: the daemons are stopped all the same.
trap 'exit 143' TERM INT
echec() {
  echo "test_grappe : ECHEC : $*" >&2
  exit 1
}

DemarrerGrappe "$t/grappe" || impossible "la grappe d'un noeud n'a pas demarre (journaux ci-dessus)"
cd "$t"
[ "$(sbatch --wait --output=hote.txt --wrap hostname > /dev/null && cat hote.txt)" = "$(hostname)" ] ||
  echec "le travail trivial n'a pas tourne"
echo "test_grappe : grappe d'un noeud prete, travail trivial fait"

# 2. The chain with the stand-in of the tests.
faux=$ici/../../tests/scripts/faux_egalise.sh
export FAUX_JOURNAL=$t/journal.txt
ids=$("$ici/soumettre.sh" --travail travail --parties 3 --egalise "$faux" --memoire-resoudre 300 --attendre \
  -- a.tif "b c.tif" -o m.tif --memoire 64) || echec "chaine factice : sbatch --wait a echoue"
# The memory each step asked: --memoire + 256 + 4 per input, the solve what --memoire-resoudre says.
memoires=$(for id in $(echo "$ids" | grep -o '[0-9]\+'); do
  scontrol show job "$id" --oneliner | grep -o 'MinMemoryNode=[0-9]*M' | head -1
done | paste -sd " ")
[ "$memoires" = "MinMemoryNode=328M MinMemoryNode=300M MinMemoryNode=328M MinMemoryNode=328M" ] ||
  echec "memoire demandee par etape : $memoires"
mots="[mosaique][a.tif][b c.tif][-o][m.tif][--memoire][64][--threads][1]"
attendu="observer 1  $mots|observer 2  $mots|resoudre   $mots|composer  1/3 $mots|composer  2/3 $mots|composer  3/3 $mots|assembler   $mots"
# Within a step the tasks may end in any order: sorted within each step, the log is the chain.
obtenu=$(awk '{ r = $1 == "observer" ? 1 : $1 == "resoudre" ? 2 : $1 == "composer" ? 3 : 4; print r "\t" $0 }' journal.txt |
  sort | cut -f2- | paste -sd "|")
ordre=$(awk '{ print $1 }' journal.txt | uniq | paste -sd " ")
[ "$ordre" = "observer resoudre composer assembler" ] || echec "ordre des etapes : $ordre"
[ "$obtenu" = "$attendu" ] || echec "etapes : $obtenu, attendu $attendu"
[ "$(cat m.tif)" = mosaique ] || echec "pas de mosaique"
echo "test_grappe : chaine factice dans l'ordre, mots de la mosaique transmis, memoire par etape"
# A failed step cancels the steps after it, and the wait ends with a failure.
rm journal.txt m.tif
! FAUX_ECHEC=resoudre "$ici/soumettre.sh" --travail travail --egalise "$faux" --attendre \
  -- a.tif -o m.tif > /dev/null 2>&1 || echec "chaine factice : l'echec de resoudre n'est pas rapporte"
ordre=$(awk '{ print $1 }' journal.txt | uniq | paste -sd " ")
[ "$ordre" = "observer resoudre" ] && [ ! -e m.tif ] || echec "apres l'echec de resoudre : $ordre"
echo "test_grappe : un echec arrete la chaine"

# 3. The real job.
egalise=$build/egalise
"$build/examples/generer_demo" demo --grille 2 --taille 300 > /dev/null
images=()
for tfw in demo/Ort_*.tfw; do
  nom=$(basename "$tfw" .tfw).tif
  # The world file gives the centre of the first pixel.
  limites=$(awk 'NR == 1 { p = $1 } NR == 4 { q = $1 } NR == 5 { x = $1 } NR == 6 { y = $1 }
    END { printf "%.6f %.6f %.6f %.6f", x - p / 2, y - q / 2 + 4400000, x - p / 2 + 300 * p, y - q / 2 + 4400000 + 300 * q }' "$tfw")
  gdal_translate -q -b 1 -b 1 -b 1 -a_srs EPSG:2154 -a_ullr $limites "demo/$nom" "$nom"
  images+=("$nom")
done
options=(-o ref.tif --compression deflate --tuile 128 --quiet)
"$egalise" mosaique "${images[@]}" "${options[@]}" --threads 1 || echec "execution en un processus"
"$ici/soumettre.sh" --travail travail_reel --parties 3 --egalise "$egalise" --attendre \
  -- "${images[@]}" -o grappe.tif "${options[@]:2}" > /dev/null || echec "chaine SLURM ; voir travail_reel/slurm/"
cmp ref.tif grappe.tif || echec "la mosaique de la grappe differe de celle d'un processus"
"$ici/../phases_parallel.sh" --travail travail_parallel --parties 3 --egalise "$egalise" \
  -- "${images[@]}" -o parallel.tif "${options[@]:2}" || echec "phases_parallel.sh"
cmp ref.tif parallel.tif || echec "la mosaique de phases_parallel.sh differe de celle d'un processus"
echo "test_grappe : chaine SLURM et phases_parallel.sh identiques a l'execution en un processus"
