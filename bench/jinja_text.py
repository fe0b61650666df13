#!/usr/bin/python3
"""Builds the text of the FSM module, every level debug, by a Jinja2 template, a common way to render configuration.

usage: jinja_text.py EXPECTED. Compares the text with the file EXPECTED and prints the best time of several runs in
microseconds.
"""
import sys
import time

import jinja2

LEVELS = ["FATAL", "ERROR", "WARN", "NOTICE", "INFO", "DEBUG"]
FORMATS = {"FATAL": " for_fatal", "WARN": " for_info", "NOTICE": " for_info", "INFO": " for_info"}
TEMPLATE = """\
{% for category in categories -%}
{% for level in levels -%}
{{ category }}.={{ level }} >syslog, LOG_LOCAL0;{{ formats.get(level, "") }}
{% endfor -%}
{% endfor -%}
"""


def main():
    with open(sys.argv[1], encoding="ascii") as expected:
        lines = expected.read().splitlines()
    categories = [line.split(".=")[0] for line in lines if ".=FATAL " in line]
    template = jinja2.Environment().from_string(TEMPLATE)
    best = None
    for _ in range(10):
        start = time.perf_counter()
        text = template.render(categories=categories, levels=LEVELS, formats=FORMATS)
        duration = time.perf_counter() - start
        best = duration if best is None else min(best, duration)
    if text.splitlines() != lines:
        sys.exit("jinja_text.py: the text differs from the expected file")
    print(round(best * 1e6))


main()
