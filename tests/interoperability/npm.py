"""What was installed from npm, and how it is run."""

import json
import os
import subprocess
from pathlib import Path

FOLDER = Path(__file__).parent
MODULES = Path(os.environ.get("INTEROPERABILITY_MODULES", "/nonexistent"))


def node(script):
    """The words that run a script of this folder with the installed packages."""
    return ["env", f"NODE_PATH={MODULES}", "node", str(script)]


def version_of(package):
    """The version of an installed package, and of what runs it."""
    document = json.loads((MODULES / package / "package.json").read_text(encoding="utf-8"))
    runtime = subprocess.run(["node", "--version"], check=True, stdout=subprocess.PIPE, text=True)
    return f"{package} {document['version']} on Node.js {runtime.stdout.strip().lstrip('v')}"
