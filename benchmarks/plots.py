"""Plots how costs grow, one picture for each scale."""

import math
import os

import matplotlib

matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402  (the backend has to be chosen before)

from peernames import MAIN_PEERS  # noqa: E402

STYLES = {
    "library": ("tab:red", "o-"),
    "bare": ("tab:gray", "s--"),
    "sqlite_each": ("tab:blue", "^-"),
    "sqlite_all": ("tab:green", "v-"),
}


def _plot(axes, run, prefix, time, title, label):
    for peer, (colour, line) in STYLES.items():
        amounts = run.amounts(f"{prefix}/{peer}")
        costs = [run.median(f"{prefix}/{peer}/{amount}", time) / 1e3 for amount in amounts]
        axes.plot(amounts, costs, line, color=colour, label=MAIN_PEERS[peer], markersize=4)
    amounts = run.amounts(f"{prefix}/library")
    axes.set_xscale("log")
    axes.set_yscale("log")
    low, high = axes.get_ylim()
    axes.set_ylim(10 ** math.floor(math.log10(low)), 10 ** math.ceil(math.log10(high)))
    axes.set_xticks(amounts, [f"{amount:,}" for amount in amounts])
    axes.minorticks_off()
    axes.set_title(title, fontsize=10)
    axes.set_xlabel(label, fontsize=9)
    axes.grid(True, alpha=0.3)


def plot_scale(run, group, operations, time, label, file):
    """@param operations by the names of their rows, their titles."""
    figure, all_axes = pyplot.subplots(1, len(operations), figsize=(3.4 * len(operations), 3), dpi=100)
    for axes, (operation, title) in zip(all_axes, operations.items()):
        _plot(axes, run, f"{group}/{operation}", time, title, label)
    all_axes[0].set_ylabel("µs", fontsize=9)
    all_axes[0].legend(fontsize=7)
    figure.tight_layout()
    os.makedirs(os.path.dirname(file), exist_ok=True)
    # Without the version and the time, so that equal results are equal files.
    figure.savefig(file, metadata={"Software": None})
    pyplot.close(figure)
