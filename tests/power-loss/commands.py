"""Commands of this machine, also those that only root has on the path."""

import subprocess

PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"


def run(*command, check=True, **options):
    """
    Runs a command to its end; what subprocess.run() gives, with the output as text. Unless it is not
    to be checked, an exception when it fails.
    """
    if "input" not in options:
        options["stdin"] = subprocess.DEVNULL
    return subprocess.run(command, check=check, text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, env={"PATH": PATH}, **options)
