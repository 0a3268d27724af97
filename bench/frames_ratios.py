#!/usr/bin/env python3
"""Ratios from one run of bench_frames, for the aims of the frame processing.

    build/release/bench/bench_frames --benchmark_repetitions=5 \\
        --benchmark_out=frames.json --benchmark_out_format=json
    bench/frames_ratios.py frames.json

Each row's time is the fastest repetition (CPU time; interference on a shared
machine only ever adds time), or its only run. Point operations are given as
multiples of a memcpy of the same frame (lower is better); neighbourhood
operations as OpenCV's time over ours (higher is better: 2.0 means twice as
fast as OpenCV).
"""
import json
import sys

POINT_OPS = ["BrightnessContrast", "Negative", "FlipVertical", "FlipHorizontal", "RowOffset", "Gamma", "Equalize"]
# Our row, then the OpenCV rows it is set against.
NEIGHBOURHOOD = [
    ("Sobel3", ["OpenCV_filter2D_Sobel3"]),
    ("Gaussian3", ["OpenCV_filter2D_Gaussian3", "OpenCV_GaussianBlur3"]),
    ("Average3", ["OpenCV_blur3"]),
    ("Average5", ["OpenCV_blur5"]),
    ("LoG5", ["OpenCV_filter2D_LoG5"]),
    ("Median3", ["OpenCV_medianBlur3"]),
    ("Median5", ["OpenCV_medianBlur5"]),
    ("Median9", ["OpenCV_medianBlur9"]),
    ("Minimum3", ["OpenCV_erode3"]),
    ("Maximum3", ["OpenCV_dilate3"]),
    ("Minimum5", ["OpenCV_erode5"]),
    ("Maximum5", ["OpenCV_dilate5"]),
    ("Minimum15", ["OpenCV_erode15"]),
    ("ScaleCubic_frame", ["OpenCV_resize_cubic_frame"]),
    ("ScaleLanczos_frame", ["OpenCV_resize_Lanczos4_frame"]),
]


def fastest(path):
    runs = {}
    for b in json.load(open(path))["benchmarks"]:
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "min":
            continue
        name = b.get("run_name", b["name"])
        t = b["cpu_time"]
        runs[name] = min(t, runs.get(name, t))
    return runs


def main():
    times = fastest(sys.argv[1])
    for depth in ("8bit", "12bit", "36bit"):
        copy = times.get("Memcpy/" + depth)
        print(f"== {depth}")
        for op in POINT_OPS:
            t = times.get(f"{op}/{depth}")
            if t is not None and copy:
                print(f"  {op:<20} {t / copy:6.2f} x memcpy")
        for ours, theirs in NEIGHBOURHOOD:
            t = times.get(f"{ours}/{depth}")
            for other in theirs:
                o = times.get(f"{other}/{depth}")
                if t is not None and o is not None:
                    print(f"  {ours:<20} {o / t:6.2f} x {other}")


if __name__ == "__main__":
    main()
