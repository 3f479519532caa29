"""python3 -m diffusefilt.cluster"""
import sys

from diffusefilt.cluster import main

if __name__ == "__main__":
    sys.exit(main())
