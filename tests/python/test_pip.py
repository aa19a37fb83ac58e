"""pip builds and installs the package offline into a fresh venv, metadata and engine too."""
import os
import shutil
import subprocess

from conftest import EXAMPLE, SOURCE

CHECK = """
import importlib.metadata, sys, xarray, zolfile
assert zolfile.__file__.startswith(sys.prefix), zolfile.__file__
assert zolfile.__version__ == importlib.metadata.version("zolfile")
assert "zol" in xarray.backends.list_engines()
with zolfile.open(sys.argv[1]) as model:
    print(len(model.arrays()), xarray.open_dataset(sys.argv[1], engine="zol").attrs["geometry"])
"""


def test_pip_install_into_a_fresh_venv(tmp_path):
    source = tmp_path / "source"
    shutil.copytree(SOURCE, source, ignore=shutil.ignore_patterns(
        "build*", ".git", "__pycache__", "*.egg-info"))
    subprocess.run(["/usr/bin/python3", "-m", "venv", "--system-site-packages", tmp_path / "v"],
                   check=True)
    env = {k: v for k, v in os.environ.items() if k != "PYTHONPATH"}
    subprocess.run([tmp_path / "v/bin/pip", "install", "-q", "--no-index",
                    "--no-build-isolation", source], check=True, env=env, cwd=tmp_path)
    done = subprocess.run([tmp_path / "v/bin/python", "-c", CHECK, EXAMPLE], env=env,
                          cwd=tmp_path, capture_output=True, text=True)
    assert (done.returncode, done.stdout, done.stderr) == (0, "7 Wheel\n", "")
