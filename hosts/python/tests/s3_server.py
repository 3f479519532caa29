# SPDX-License-Identifier: MIT
"""Runs a command with an S3 server on loopback, whose address stands in DIFFUSEFILT_TEST_S3:

    python3 s3_server.py FOLDER COMMAND...

FOLDER gets the server, s3rver of npm, unless it is there, and the buckets while the command runs.
"""
import os
import shutil
import socket
import subprocess
import sys
import time


def main(folder, *command):
    program = os.path.join(folder, "node_modules", ".bin", "s3rver")
    if not os.path.exists(program):
        os.makedirs(folder, exist_ok=True)
        subprocess.run(["npm", "install", "--silent", "--no-audit", "--no-fund", "--prefix",
                        folder, "s3rver@3.7.1"], check=True)
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    buckets = os.path.join(folder, "buckets")
    server = subprocess.Popen([program, "--silent", "--directory", buckets, "--address",
                               "127.0.0.1", "--port", str(port)])
    try:
        for _ in range(200):
            with socket.socket() as attempt:
                if attempt.connect_ex(("127.0.0.1", port)) == 0:
                    break
            time.sleep(0.1)
        return subprocess.run(command, env={
            **os.environ, "DIFFUSEFILT_TEST_S3": f"http://127.0.0.1:{port}"}).returncode
    finally:
        server.kill()
        server.wait()
        shutil.rmtree(buckets, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
