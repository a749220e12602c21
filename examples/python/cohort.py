"""A filter graph over a cohort of scans on a dask.distributed cluster, each result written
atomically beside the others.

    python3 cohort.py GRAPH_FILE OUTPUT_FOLDER SCAN... [--scheduler tcp://host:8786]

Without --scheduler it starts a LocalCluster of two worker processes on this machine. The graph is
a text description as `tarv filter` reads it; input ID 0 is each scan.
"""
import argparse

import tarv.cohort



def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("graph")
    parser.add_argument("output")
    parser.add_argument("scans", nargs="+")
    parser.add_argument("--scheduler", help="address of a running dask scheduler")
    parser.add_argument("--suffix", default=".nii.gz", help="extension of the result files (chooses their format)")
    arguments = parser.parse_args()

    with open(arguments.graph) as f:
        graph = f.read()
    client = None
    if arguments.scheduler:
        from dask.distributed import Client
        client = Client(arguments.scheduler)
    entries = tarv.cohort.run_cohort(arguments.scans, graph, arguments.output, client=client, suffix=arguments.suffix)
    failed = 0
    for entry in entries:
        if entry["error"]:
            failed += 1
            print("%s: %s" % (entry["input"], entry["error"]))
        else:
            print("%s -> %s (%.2f s)" % (entry["input"], entry["output"], entry["seconds"]))
    raise SystemExit(1 if failed else 0)


# The worker processes import this file again: only the main process runs the cohort.
if __name__ == "__main__":
    main()
