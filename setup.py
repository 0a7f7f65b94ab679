"""Builds the Python module with the library in it: `pip install .`, or `pip wheel .`."""

import glob
import os
import platform
import re

import setuptools
from setuptools.command.build_clib import build_clib

with open("CMakeLists.txt", encoding="utf-8") as file:
    version = re.search(r"project\(VELK VERSION ([\d.]+)", file.read())[1]
stages = [path for folder in ("dce", "filters", "sorting") for path in glob.glob(f"src/{folder}/*.cpp")]
stages.append("src/pipeline/stages.cpp")
others = [path for folder in ("pipeline", "archive", "api") for path in glob.glob(f"src/{folder}/*.cpp")
          if path not in (*stages, "src/archive/file_drivers.cpp")]
flags = ["-std=c++20", "-fno-exceptions", "-fvisibility=hidden", "-pthread", "-g0"]
folders = ["src", "include"]
macros = [("VELK_TABLE", "kBaseline"), ("VELK_VERSION", f'"{version}"')]
second = []
if platform.machine() in ("x86_64", "AMD64"):
    # The stages once more, for the processors that have these instructions.
    macros.append(("VELK_HAS_V3", None))
    second.append(("velk_v3", {
        "sources": sorted(stages), "include_dirs": folders,
        "macros": [("velk", "velk_v3"), ("VELK_TABLE", "kV3"), ("VELK_HAS_V3", None)],
        "cflags": [*flags, "-mavx2", "-mbmi", "-mbmi2"]}))


class BuildLibraries(build_clib):
    """Each in a folder of its own, as two are of the same sources."""

    def build_libraries(self, libraries):
        top = self.build_temp
        for library in libraries:
            self.build_temp = os.path.join(top, library[0])
            super().build_libraries([library])


setuptools.setup(
    version=version,
    package_dir={"": "python"},
    packages=["velk"],
    package_data={"velk": ["py.typed", "*.pyi"]},
    include_package_data=False,
    libraries=[("velk_core", {"sources": sorted(stages + others), "include_dirs": folders,
                              "macros": macros, "cflags": flags}), *second],
    ext_modules=[setuptools.Extension("velk._velk", ["python/velk/_velk.c"], include_dirs=["include"],
                                      extra_link_args=["-pthread"], py_limited_api=True)],
    options={"bdist_wheel": {"py_limited_api": "cp311"}},
    cmdclass={"build_clib": BuildLibraries},
)
