# SPDX-License-Identifier: MIT
"""python3 -m diffusefilt"""
import sys

from diffusefilt.cli import main

if __name__ == "__main__":
    sys.exit(main())
