# A one-node SLURM cluster on this machine, for the tests (sourced, not run; as root).
#   DemarrerGrappe DIR   writes DIR/slurm.conf (this host, its CPUs, 90 % of its memory, no cgroup:
#                        fit for a container), starts munged, slurmctld and slurmd with their state,
#                        logs and sockets under DIR, exports SLURM_CONF and waits for the node.
#   ArreterGrappe DIR    stops the three daemons started there, by their pid files.
# GRAPPE_PORT (default 16817) and GRAPPE_PORT + 1 are the controller's and the node's ports.

DemarrerGrappe() {
  local d=$1 hote cpus memoire port=${GRAPPE_PORT:-16817}
  hote=$(hostname)
  cpus=$(nproc)
  memoire=$(awk '/^MemTotal:/ { print int($2 / 1024 * 0.9) }' /proc/meminfo)
  mkdir -p "$d/etat" "$d/spool"
  # munged wants the folders above its socket searchable by all, and its key private.
  chmod 755 "$d"
  mungekey -c -f -k "$d/munge.key"
  munged --socket="$d/munge.socket" --key-file="$d/munge.key" --log-file="$d/munged.log" \
    --pid-file="$d/munged.pid" --seed-file="$d/munged.seed"
  cat > "$d/slurm.conf" << FIN
ClusterName=egalise
SlurmctldHost=$hote
SlurmUser=root
SlurmdUser=root
SlurmctldPort=$port
SlurmdPort=$((port + 1))
AuthType=auth/munge
AuthInfo=socket=$d/munge.socket
CredType=cred/munge
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core_Memory
MpiDefault=none
ReturnToService=2
StateSaveLocation=$d/etat
SlurmdSpoolDir=$d/spool
SlurmctldPidFile=$d/slurmctld.pid
SlurmdPidFile=$d/slurmd.pid
SlurmctldLogFile=$d/slurmctld.log
SlurmdLogFile=$d/slurmd.log
NodeName=$hote CPUs=$cpus RealMemory=$memoire State=UNKNOWN
PartitionName=locale Nodes=$hote Default=YES MaxTime=INFINITE State=UP
FIN
  export SLURM_CONF=$d/slurm.conf
  slurmctld -f "$SLURM_CONF"
  slurmd -f "$SLURM_CONF"
  local i
  for i in $(seq 60); do
    case "$(sinfo -h -o %t 2> /dev/null)" in idle*) return 0 ;; esac
    sleep 0.5
  done
  echo "grappe_locale : le noeud $hote n'est pas pret ; sinfo :" >&2
  sinfo >&2 || true
  tail -n 20 "$d/slurmctld.log" "$d/slurmd.log" >&2 || true
  return 1
}

ArreterGrappe() {
  local d=$1 f
  for f in slurmd slurmctld munged; do
    [ -s "$d/$f.pid" ] && kill "$(cat "$d/$f.pid")" 2> /dev/null || true
  done
  # Each daemon removes its pid file as it ends.
  for f in $(seq 40); do
    [ -e "$d/slurmd.pid" ] || [ -e "$d/slurmctld.pid" ] || [ -e "$d/munged.pid" ] || return 0
    sleep 0.25
  done
}
