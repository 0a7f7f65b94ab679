"""Puts together what scripts/web makes: the page, and the npm package.

bundle.py FOLDER, in which velk.wasm is
"""

import base64
import gzip
import hashlib
import io
import pathlib
import re
import shutil
import sys
import tarfile

WEB = pathlib.Path(__file__).resolve().parent
FOLDER = pathlib.Path(sys.argv[1])


def text(name):
    return (WEB / name).read_text(encoding="utf-8")


def place(page, **parts):
    """The page with each part in the place of its name."""
    return re.sub(r"@([A-Z_]+)@", lambda match: parts[match[1]], page)


def source_hash(part):
    """As a Content-Security-Policy names a script or a style."""
    digest = hashlib.sha256(part.encode()).digest()
    return f"'sha256-{base64.b64encode(digest).decode()}'"


def make_page(library):
    # The worker is no module: not all browsers have those.
    worker = re.sub(r"^export ", "", library, flags=re.MULTILINE) + text("worker.js")
    style, script = text("page.css"), text("page.js")
    return place(text("page.html"), STYLE=style, SCRIPT=script, WORKER=worker,
                 STYLE_HASH=source_hash(style), SCRIPT_HASH=source_hash(script))


def nobodys(member):
    """A member of a tar file that is the same whoever makes it, and when."""
    member.mode = 0o755 if member.isdir() else 0o644
    member.uid = member.gid = 0
    member.uname = member.gname = ""
    member.mtime = 499162500  # npm's
    return member


def make_package(library):
    top = (WEB.parent / "CMakeLists.txt").read_text()
    version = re.search(r"^project\(.*VERSION (\d+\.\d+)", top, re.MULTILINE)[1] + ".0"
    package = FOLDER / "velk"
    shutil.rmtree(package, ignore_errors=True)
    package.mkdir()
    (package / "velk.js").write_text(library, encoding="utf-8")
    (package / "package.json").write_text(place(text("package.json"), VERSION=version))
    for file in (WEB / "velk.d.ts", WEB / "README.md", WEB.parent / "LICENSE"):
        shutil.copy(file, package)
    # As npm pack does it: with that, Debian's npm would bring 400 packages.
    tar = io.BytesIO()
    with tarfile.open(fileobj=tar, mode="w") as archive:
        archive.add(package, "package", filter=nobodys)
    (FOLDER / f"velk-{version}.tgz").write_bytes(gzip.compress(tar.getvalue(), 9, mtime=0))


def main():
    module = gzip.compress((FOLDER / "velk.wasm").read_bytes(), 9, mtime=0)
    library = place(text("velk.js"), MODULE=base64.b64encode(module).decode())
    page = FOLDER / "unvelk.html"
    page.write_text(make_page(library), encoding="utf-8")
    make_package(library)
    print(f"{page}: {page.stat().st_size} bytes, the module in it {len(module)}")


main()
