# SPDX-License-Identifier: BSD-3-Clause
"""A wheel: pip wheel --no-build-isolation bindings/python   (python3-skbuild, ninja, oneTBB)"""
import pathlib
import re

from skbuild import setup

root = pathlib.Path(__file__).resolve().parents[2]
version = re.search(r"project\(Orvanite VERSION ([0-9.]+)", (root / "CMakeLists.txt").read_text())[1]

setup(
    name="orvanite",
    version=version,
    description="A colour-difference keyer for pictures that are numpy arrays",
    license="BSD-3-Clause",
    packages=["orvanite"],
    package_data={"orvanite": ["py.typed"]},
    python_requires=">=3.8",
    install_requires=["numpy"],
    cmake_source_dir=str(root),
    cmake_args=["-DORVANITE_BUILD_APPS=OFF", "-DORVANITE_BUILD_NODE=OFF", "-DORVANITE_BUILD_PLUGINS=OFF",
                "-DORVANITE_BUILD_EXAMPLES=OFF", "-DORVANITE_BUILD_TESTS=OFF",
                "-DORVANITE_PYTHON_WHOLE=ON", "-DORVANITE_PYTHON_FOLDER=."],
    cmake_install_target="install-python",
)
