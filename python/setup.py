# SPDX-License-Identifier: LicenseRef-qxkernel
"""Builds the compiled half with CMake against the installed library.

    pip wheel --no-build-isolation --no-deps python

The library is found as CMake finds it: CMAKE_PREFIX_PATH names where it was installed if that is no usual place. The
module remembers that place.
"""

import re
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = Path(__file__).resolve().parent


class CMakeBuild(build_ext):
    def build_extension(self, extension):
        target = Path(self.get_ext_fullpath(extension.name)).resolve()
        folder = Path(self.build_temp).resolve()
        subprocess.run(["cmake", "-S", HERE, "-B", folder, "-DCMAKE_BUILD_TYPE=Release",
                        f"-DQX_PYTHON_EXECUTABLE={sys.executable}"], check=True)
        subprocess.run(["cmake", "--build", folder, "--target", "qx_python", "--parallel", "2"], check=True)
        target.parent.mkdir(parents=True, exist_ok=True)
        self.copy_file(next((folder / "python" / "qxkernel").glob("_core*")), target)


def version():
    """That of the project; a copy of this folder alone has none."""
    listing = HERE.parent / "CMakeLists.txt"
    found = re.search(r"project\(qxkernel VERSION ([0-9.]+)", listing.read_text()) if listing.exists() else None
    return found.group(1) if found else "0"


setup(version=version(), ext_modules=[Extension("qxkernel._core", sources=[])], cmdclass={"build_ext": CMakeBuild})
