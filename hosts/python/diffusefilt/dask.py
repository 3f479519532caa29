"""Lazily, on Dask arrays; and on Zarr stores through a cluster."""
from diffusefilt.cluster import filter_store

__all__ = ["filter_store"]
