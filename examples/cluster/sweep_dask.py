"""A sweep on a Dask cluster. Workers and clients find the scheduler by a file that it writes:

    dask-scheduler --scheduler-file scheduler.json
    dask-worker --scheduler-file scheduler.json --nthreads 1 --nworkers 8     # on each machine
    python3 sweep_dask.py scheduler.json RECIPE FOLDER
"""

import sys

from distributed import Client

import vorlen

if __name__ == "__main__":
    scheduler_file, recipe, folder = sys.argv[1:]
    with Client(scheduler_file=scheduler_file) as client:
        sweep = vorlen.sweep(
            recipe, {"process_stages/stage_1/T": range(1000, 1060, 5)}, executor=client, out=folder, progress=False
        )
    print(sweep.table.status.value_counts().to_string())
