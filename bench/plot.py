#!/usr/bin/python3
"""Draws two plots from the samples of board_bench. usage: plot.py SAMPLES CHANGE_SVG START_SVG"""
import sys

WIDTH, HEIGHT, LEFT, BOTTOM, TOP = 720, 300, 60, 40, 30
STYLE = 'font-family="sans-serif" font-size="12"'


def svg(path, title, body):
    with open(path, "w", encoding="ascii") as out:
        out.write(
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" {STYLE}>\n'
            f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>\n'
            f'<text x="{LEFT}" y="18" font-weight="bold">{title}</text>\n' + "\n".join(body) + "\n</svg>\n"
        )


def histogram(path, times):
    """Draws a histogram of the times of the changes, up to the 99th percentile."""
    times = sorted(time / 1000 for time in times)
    end = times[int(len(times) * 0.99)]
    bins = 40
    counts = [0] * bins
    for time in times:
        if time < end:
            counts[int(time / end * bins)] += 1
    wide, high = (WIDTH - LEFT - 20) / bins, HEIGHT - BOTTOM - TOP
    body = []
    for index, count in enumerate(counts):
        bar = count / max(counts) * high
        body.append(
            f'<rect x="{LEFT + index * wide:.1f}" y="{HEIGHT - BOTTOM - bar:.1f}" width="{wide - 1:.1f}" '
            f'height="{bar:.1f}" fill="#4878a8"/>'
        )
    for tick in range(5):
        body.append(f'<text x="{LEFT + tick * (WIDTH - LEFT - 20) / 4:.0f}" y="{HEIGHT - 20}">{end * tick / 4:.1f} ms</text>')
    median = times[len(times) // 2]
    svg(path, f"From a commit to the file replaced: {len(times)} changes, median {median:.2f} ms", body)


def phases(path, starts):
    """Draws the mean time of each phase of a start, as one bar."""
    names = ["exec, libraries", "objects, first file", "the other 25 files", "service, READY=1"]
    colours = ["#4878a8", "#78a848", "#c8a040", "#a85878"]
    means = [sum(start[phase] for start in starts) / len(starts) / 1000 for phase in range(len(names))]
    scale = (WIDTH - LEFT - 20) / sum(means)
    body, at = [], LEFT
    for index, (name, mean, colour) in enumerate(zip(names, means, colours)):
        body.append(f'<rect x="{at:.1f}" y="60" width="{mean * scale:.1f}" height="60" fill="{colour}"/>')
        at += mean * scale
        body.append(f'<rect x="{LEFT}" y="{145 + index * 25}" width="14" height="14" fill="{colour}"/>')
        body.append(f'<text x="{LEFT + 22}" y="{157 + index * 25}">{name}: {mean:.2f} ms</text>')
    svg(path, f"A first start by phase: mean of {len(starts)}, {sum(means):.2f} ms in all", body)


def main():
    samples, change, start = sys.argv[1:]
    with open(samples, encoding="ascii") as file:
        rows = [line.split("\t") for line in file.read().splitlines()]
    histogram(change, [float(row[1]) for row in rows if row[0] == "change"])
    phases(start, [[float(time) for time in row[1:]] for row in rows if row[0] == "start"])


main()
