"""A sweep under MPI: the first process distributes the rows, the others run them.

    mpiexec -n 9 python3 -m mpi4py.futures sweep_mpi.py RECIPE FOLDER
"""

import sys

from mpi4py.futures import MPIPoolExecutor

import vorlen

if __name__ == "__main__":
    recipe, folder = sys.argv[1:]
    with MPIPoolExecutor() as executor:
        sweep = vorlen.sweep(
            recipe, {"process_stages/stage_1/T": range(1000, 1060, 5)}, executor=executor, out=folder, progress=False
        )
    print(sweep.table.status.value_counts().to_string())
