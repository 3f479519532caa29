"""The command `diffusefilt`: a Zarr store to another one, on a Dask cluster."""
from __future__ import annotations

import sys
from typing import Optional


def main(arguments: Optional[list[str]] = None) -> int:
    try:
        from diffusefilt import cluster
    except ImportError as error:  # Dask and Zarr are not installed with the package
        print(f"diffusefilt: {error}", file=sys.stderr)
        return 1
    return cluster.main(arguments)


if __name__ == "__main__":
    sys.exit(main())
