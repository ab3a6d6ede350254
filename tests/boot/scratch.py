"""A root folder in memory over one that is not touched."""

import contextlib
import os
import subprocess

MEMORY = "2g"


def unmount(*folders):
    for folder in folders:
        if os.path.ismount(folder):
            subprocess.run(["umount", "--lazy", str(folder)], check=True)


@contextlib.contextmanager
def scratch_root(base, folder):
    """`base` with what is written to it kept in memory, below `folder`, until the end."""
    memory = folder / "scratch"
    root = memory / "root"
    # What a run left that did not come to its end.
    unmount(root, memory)
    memory.mkdir(exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={MEMORY},mode=0700", "tovrel-guest",
                    str(memory)], check=True)
    try:
        for name in ("root", "upper", "work"):
            (memory / name).mkdir()
        # The mode of "/" is that of the upper folder.
        (memory / "upper").chmod(0o755)
        subprocess.run(["mount", "-t", "overlay", "-o",
                        f"lowerdir={base},upperdir={memory}/upper,workdir={memory}/work",
                        "tovrel-guest", str(root)], check=True)
        yield root
    finally:
        unmount(root, memory)
