"""Builds the zolfile extension with the project's CMake build (pyproject.toml says the rest).

The version is the project's, from CMakeLists.txt, so that importlib.metadata and
zolfile.__version__ (the library's) agree.
"""
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


def project_version():
    text = (ROOT / "CMakeLists.txt").read_text()
    return re.search(r"project\(\w+ VERSION ([0-9.]+)", text).group(1)


class CMakeBuild(build_ext):
    def build_extension(self, extension):
        build = Path(self.build_temp).resolve() / "cmake"
        subprocess.run(["cmake", "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=Release",
                        "-DMRL_TESTS=OFF", "-DMRL_INSTALL=OFF",
                        f"-DPython3_EXECUTABLE={sys.executable}"], check=True)
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", "2")
        subprocess.run(["cmake", "--build", build, "--target", "_zolfile", "-j", jobs],
                       check=True)
        built = next((build / "python" / "zolfile").glob("_zolfile*.so"))
        target = Path(self.get_ext_fullpath(extension.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(built, target)


setup(version=project_version(),
      ext_modules=[Extension("zolfile._zolfile", sources=[])],
      cmdclass={"build_ext": CMakeBuild},
      options={"build": {"build_base": "build/pip"}})
