# SPDX-License-Identifier: MIT
"""Puts figures into docs/performance.md, between the marks of its regions."""
import re

import plot
import report
import shapes


def put(text, region, content):
    begin, end = f"<!-- begin {region} -->\n", f"<!-- end {region} -->\n"
    pattern = re.compile(re.escape(begin) + ".*?" + re.escape(end), re.DOTALL)
    if not pattern.search(text):
        raise ValueError(f"performance.md has no region {region}")
    return pattern.sub(lambda _: f"{begin}\n{content}\n{end}", text)


def write(folder, speed, sizes):
    page = folder / "performance.md"
    text = page.read_text()
    by_shape = "\n".join(f"{title[0].upper()}{title[1:]}:\n\n{table}"
                         for title, table in shapes.tables(sizes["runs"]))
    for region, content in {
            "processor": f"Measured on: {speed['processor']}.\n",
            "speed": report.speed_table(speed["runs"]),
            "misses": report.misses(speed["runs"], report.speed_aims),
            "sizes": by_shape,
            "misses by size": report.misses(sizes["runs"], shapes.aims)}.items():
        text = put(text, region, content)
    page.write_text(text)
    plot.draw(speed, folder / "images/speed.svg")
