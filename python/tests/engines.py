"""Starts real engines on the loopback interface, for the tests: Dask, MPI, Slurm. Each ends with the test.

An engine that can't be started at all on this machine skips the test with a reason; VORLEN_ENGINES=required makes that
a failure.
"""

from __future__ import annotations

import contextlib
import importlib
import os
import shutil
import socket
import subprocess
import sys
import time
import types
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import NoReturn

import pytest

import vorlen

PYTHON_PATH = str(Path(vorlen.__file__).parents[1])
START_TIME = 60.0  # s, limit for the start of an engine


def cannot_run(reason: str) -> NoReturn:
    """Skips the test, or fails it if the engines are required."""
    if os.environ.get("VORLEN_ENGINES") == "required":
        pytest.fail(reason)
    pytest.skip(reason)


def require_module(name: str) -> types.ModuleType:
    """The module, or the test can't run."""
    try:
        return importlib.import_module(name)
    except ImportError as error:
        cannot_run(f"{name} can't be imported: {error}")


def require_commands(*names: str) -> None:
    """The commands are there, or the test can't run."""
    for name in names:
        if shutil.which(name) is None and not Path("/usr/sbin", name).exists():
            cannot_run(f"{name} is not installed")


def wait_for(condition: Callable[[], object], seconds: float = START_TIME) -> bool:
    """True as soon as condition holds, False after the time limit."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if condition():
            return True
        time.sleep(0.05)
    return bool(condition())


def free_ports(count: int) -> list[int]:
    """Ports that nothing listens on."""
    sockets = [socket.socket() for _ in range(count)]
    try:
        for one in sockets:
            one.bind(("127.0.0.1", 0))
        return [one.getsockname()[1] for one in sockets]
    finally:
        for one in sockets:
            one.close()


def environment(**more: str) -> dict[str, str]:
    """That of the tests, with this package on the path."""
    return os.environ | {"PYTHONPATH": PYTHON_PATH} | more


class Services:
    """Processes of an engine, their output in a folder; ended in reverse order."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self.processes: list[subprocess.Popen[bytes]] = []

    def start(self, name: str, command: list[str], **more: str) -> subprocess.Popen[bytes]:
        with open(self.folder / f"{name}.out", "wb") as output:
            process = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=output, stderr=output, env=environment(**more),
                cwd=self.folder,
            )
        self.processes.append(process)
        return process

    def stop(self) -> None:
        for process in reversed(self.processes):
            process.terminate()
            try:
                process.wait(15)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()

    def outputs(self) -> str:
        texts = [*self.folder.glob("*.out"), *self.folder.glob("*.log")]
        return "\n".join(f"-- {path.name}\n{path.read_text(errors='replace')[-2000:]}" for path in sorted(texts))


@contextlib.contextmanager
def services(folder: Path) -> Iterator[Services]:
    """Services that end with the block, however it ends."""
    folder.mkdir(parents=True, exist_ok=True)
    started = Services(folder)
    try:
        yield started
    finally:
        started.stop()


@contextlib.contextmanager
def dask_cluster(folder: Path, workers: int) -> Iterator[tuple[Path, list[subprocess.Popen[bytes]]]]:
    """A scheduler and its workers, of one thread each. Gives the scheduler's file and the processes of the workers."""
    scheduler_file = folder / "scheduler.json"
    with services(folder) as cluster:
        cluster.start(
            "scheduler",
            [sys.executable, "-m", "distributed.cli.dask_scheduler", "--host", "127.0.0.1", "--port", "0",
             "--no-dashboard", "--scheduler-file", str(scheduler_file)],
        )
        if not wait_for(scheduler_file.exists):
            cannot_run(f"the Dask scheduler does not start\n{cluster.outputs()}")
        processes = [
            cluster.start(
                f"worker{number}",
                [sys.executable, "-m", "distributed.cli.dask_worker", "--scheduler-file", str(scheduler_file),
                 "--host", "127.0.0.1", "--nthreads", "1", "--no-nanny", "--no-dashboard",
                 "--local-directory", str(folder)],
            )
            for number in range(workers)
        ]
        yield scheduler_file, processes


SLURM_CONF = """\
ClusterName=vorlen
SlurmctldHost={host}(127.0.0.1)
SlurmctldPort={controller_port}
SlurmdPort={node_port}
CommunicationParameters=NoCtldInAddrAny,NoInAddrAny
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket={folder}/munge.socket
StateSaveLocation={folder}/state
SlurmdSpoolDir={folder}/spool
SlurmctldPidFile={folder}/slurmctld.pid
SlurmdPidFile={folder}/slurmd.pid
SlurmctldLogFile={folder}/slurmctld.log
SlurmdLogFile={folder}/slurmd.log
ProctrackType=proctrack/pgid
TaskPlugin=task/none
MpiDefault=none
SwitchType=switch/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SchedulerType=sched/builtin
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
ReturnToService=2
NodeName={host} NodeAddr=127.0.0.1 CPUs=2 State=UNKNOWN
PartitionName=main Nodes={host} Default=YES MaxTime=INFINITE State=UP
"""


@contextlib.contextmanager
def slurm_cluster(folder: Path) -> Iterator[dict[str, str]]:
    """A whole Slurm of one node: munged, slurmctld, slurmd. Gives the variables that its commands need."""
    require_commands("munged", "slurmctld", "slurmd", "sbatch", "squeue", "sinfo")
    if os.geteuid() != 0:
        cannot_run("Slurm is started as root only")
    host = socket.gethostname().split(".")[0]
    controller_port, node_port = free_ports(2)
    with services(folder) as cluster:
        for name in ("state", "spool"):
            (folder / name).mkdir()
        key = folder / "munge.key"
        key.write_bytes(os.urandom(128))
        key.chmod(0o600)
        configuration = folder / "slurm.conf"
        configuration.write_text(
            SLURM_CONF.format(host=host, folder=folder, controller_port=controller_port, node_port=node_port)
        )
        variables = {"SLURM_CONF": str(configuration), "PATH": f"{os.environ['PATH']}:/usr/sbin"}
        os_variables = variables | {"PYTHONPATH": PYTHON_PATH}
        cluster.start(
            "munged",
            ["/usr/sbin/munged", "--foreground", "--force", f"--key-file={key}", f"--socket={folder}/munge.socket",
             f"--pid-file={folder}/munged.pid", f"--seed-file={folder}/munged.seed", f"--log-file={folder}/munged.log"],
        )
        if not wait_for((folder / "munge.socket").exists):
            cannot_run(f"munged does not start\n{cluster.outputs()}")
        cluster.start("controller", ["/usr/sbin/slurmctld", "-D", "-f", str(configuration)], **variables)
        cluster.start("node", ["/usr/sbin/slurmd", "-D", "-f", str(configuration), "-N", host], **variables)

        def node_is_idle() -> bool:
            listing = subprocess.run(
                ["sinfo", "-h", "-o", "%T"], env=environment(**variables), capture_output=True, text=True, check=False
            )
            return listing.stdout.strip() == "idle"

        if not wait_for(node_is_idle):
            cannot_run(f"Slurm does not start\n{cluster.outputs()}")
        yield os_variables
