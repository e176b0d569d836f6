# Shared by scripts/phases_parallel.sh and scripts/slurm/soumettre.sh (sourced, not run).
#   LireOptions "VALEURS" "DRAPEAUX" ARGS...  the script's own options, up to "--": "--nom V" sets the
#                        variable nom for a nom of VALEURS, "--nom" sets nom=1 for one of DRAPEAUX
#                        (a '-' in nom is a '_' in the variable's name);
#                        sets LUS to the number of words read, "--" included. --travail is required.
#   LireTravail ARGS...  sets NB_ENTREES (an @LISTE counts its non-blank lines, as egalise does),
#                        MEMOIRE (--memoire, else 1024 MiB) and THREADS (--threads, else empty).
# Images come before the first word that starts with '-': a path that starts with '-' goes in an
# @LISTE file.

LireOptions() {
  local valeurs=" $1 " drapeaux=" $2 " nom
  shift 2
  LUS=0
  while [ $# -gt 0 ] && [ "$1" != "--" ]; do
    nom=${1#--}
    if [ "$nom" != "$1" ] && [ "${drapeaux#* $nom }" != "$drapeaux" ]; then
      printf -v "${nom//-/_}" %s 1
      shift
      LUS=$((LUS + 1))
      continue
    fi
    [ "$nom" != "$1" ] && [ "${valeurs#* $nom }" != "$valeurs" ] || Erreur "option inconnue $1"
    [ $# -ge 2 ] || Erreur "$1 attend une valeur"
    printf -v "${nom//-/_}" %s "$2"
    shift 2
    LUS=$((LUS + 2))
  done
  [ $# -gt 0 ] || Erreur "-- puis les images et les options de la mosaique sont attendus"
  LUS=$((LUS + 1))
  [ -n "${travail:-}" ] || Erreur "--travail DIR est obligatoire"
}

# The job's words that follow "--", images first, then the options of `egalise mosaique`.
LireTravail() {
  NB_ENTREES=0
  MEMOIRE=1024
  THREADS=
  options=0
  precedent=
  for mot in "$@"; do
    case "$precedent" in
      --memoire) MEMOIRE=$mot ;;
      --threads) THREADS=$mot ;;
    esac
    precedent=$mot
    case "$mot" in
      --memoire=*) MEMOIRE=${mot#--memoire=} ;;
      --threads=*) THREADS=${mot#--threads=} ;;
      --travail | --travail=* | --etape | --etape=* | --index | --index=* | --partie | --partie=*)
        Erreur "$mot : les etapes sont choisies par ce script, pas sur la ligne de la mosaique" ;;
    esac
    case "$mot" in -*) options=1 ;; esac
    [ "$options" = 1 ] && continue
    case "$mot" in
      @*)
        [ -r "${mot#@}" ] || Erreur "liste d'images ${mot#@} illisible"
        NB_ENTREES=$((NB_ENTREES + $(grep -c '[^[:space:]]' "${mot#@}"))) ;;
      *) NB_ENTREES=$((NB_ENTREES + 1)) ;;
    esac
  done
  [ "$NB_ENTREES" -ge 1 ] || Erreur "aucune image avant les options"
  case "$MEMOIRE" in '' | *[!0-9]*) Erreur "--memoire $MEMOIRE : un entier de Mio est attendu" ;; esac
  case "$THREADS" in *[!0-9]*) Erreur "--threads $THREADS : un entier est attendu" ;; esac
}

Erreur() {
  echo "$(basename "$0") : $*" >&2
  exit 2
}

# Checks that a value is a positive integer; $1 names it.
Entier() {
  case "$2" in '' | *[!0-9]* | 0) Erreur "$1 $2 : un entier positif est attendu" ;; esac
}
