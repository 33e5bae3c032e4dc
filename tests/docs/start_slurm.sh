# shellcheck shell=bash
# Starts a Slurm cluster of this machine alone, below the current directory, and sets SLURM_CONF. To be sourced as root;
# wants munge and slurm-wlm. stop_slurm ends it.

slurm_home=$PWD/cluster
slurm_host=$(hostname -s)
slurm_port=$((20000 + RANDOM % 10000))
mkdir -p "$slurm_home"/{munge,spool,state}
head -c 32 /dev/urandom >"$slurm_home/munge/key"
chmod 600 "$slurm_home/munge/key"
munged --force --key-file="$slurm_home/munge/key" --socket="$slurm_home/munge/socket" \
    --pid-file="$slurm_home/munge/pid" --log-file="$slurm_home/munge/log" --seed-file="$slurm_home/munge/seed"

cat >"$slurm_home/slurm.conf" <<CONF
ClusterName=desk
SlurmctldHost=$slurm_host(127.0.0.1)
SlurmUser=root
SlurmctldPort=$slurm_port
SlurmdPort=$((slurm_port + 1))
AuthType=auth/munge
AuthInfo=socket=$slurm_home/munge/socket
SlurmctldPidFile=$slurm_home/controller.pid
SlurmdPidFile=$slurm_home/node.pid
StateSaveLocation=$slurm_home/state
SlurmdSpoolDir=$slurm_home/spool
SlurmctldLogFile=$slurm_home/controller.log
SlurmdLogFile=$slurm_home/node.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
ReturnToService=2
MpiDefault=none
NodeName=$slurm_host NodeAddr=127.0.0.1 CPUs=$(nproc) State=UNKNOWN
PartitionName=all Nodes=ALL Default=YES MaxTime=INFINITE State=UP
CONF
export SLURM_CONF=$slurm_home/slurm.conf
slurmctld -i
slurmd

stop_slurm() {
    kill "$(cat "$slurm_home/node.pid")" "$(cat "$slurm_home/controller.pid")" "$(cat "$slurm_home/munge/pid")"
}

# Until the node takes jobs.
for ((slurm_try = 0; slurm_try < 100; slurm_try++)); do
    [ "$(sinfo --noheader --format=%t 2>/dev/null)" != idle ] || break
    sleep 0.1
done
[ "$(sinfo --noheader --format=%t)" = idle ]
