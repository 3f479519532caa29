# SPDX-License-Identifier: MIT
"""python3 -m diffusefilt.cluster"""
import signal
import sys

if __name__ == "__main__":
    # Until main has handlers of its own, Ctrl-C ends this in silence.
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    from diffusefilt.cluster.command import main
    sys.exit(main())
