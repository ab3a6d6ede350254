"""A disk's file system after a power cut: its journal is replayed, then a folder is read."""

from commands import run

# What e2fsck ends with when it has found nothing, or has put right what there was, as at each boot.
RECOVERED = (0, 1)


class BrokenFileSystem(Exception):
    """The file system cannot be used without somebody's help."""


class ImageReader:
    """Looks into images; they stand in a folder of its own, best in memory."""

    def __init__(self, work):
        self.work = work
        self.image = work / "image"

    def folder(self, state, path, names):
        """
        The contents of a folder by name, once the file system of a disk in this state has been
        recovered: of the files named the bytes, of all else None.
        """
        state.write_to(self.image)
        done = run("e2fsck", "-p", self.image, check=False)
        if done.returncode not in RECOVERED:
            raise BrokenFileSystem(done.stdout + done.stderr)
        for name in names:
            (self.work / name).unlink(missing_ok=True)
        requests = self.work / "requests"
        requests.write_text("".join([f"ls -p {path}\n"] + [
            f"dump {path}/{name} {self.work / name}\n" for name in names]), encoding="utf-8")
        done = run("debugfs", "-f", requests, self.image)
        found = names_in(done.stdout)
        absent = [f"{path}/{name}: File not found" for name in names if name not in found]
        complaints = [line for line in done.stderr.splitlines()[1:]  # behind its name and version
                      if not any(line.startswith(each) for each in absent)]
        if complaints:
            raise BrokenFileSystem("\n".join(complaints))
        return dict.fromkeys(found) | {name: (self.work / name).read_bytes()
                                       for name in names if name in found}


def names_in(listing):
    """The names in what "ls -p" prints, lines like "/12/100640/0/0/name/17/"."""
    fields = [line.split("/") for line in listing.splitlines() if line.startswith("/")]
    return [each[5] for each in fields if each[5] not in (".", "..")]
