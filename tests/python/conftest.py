import os
import subprocess
from pathlib import Path

import pytest

SOURCE = Path(os.environ.get("ZOL_SOURCE_DIR", Path(__file__).parents[2]))
ZOLINFO = os.environ.get("ZOLINFO_EXE", str(SOURCE / "build" / "ZolInfo"))
ZOLGEN = os.environ.get("ZOLGEN_EXE", str(SOURCE / "build" / "python" / "zolgen"))
EXAMPLE = SOURCE / "examples" / "wheel.zol"

# zolgen options of the generated models: versions, packing, components, parts, sizes.
GENERATED = {
    "plain-1part": ["--nodes", "40", "--elements", "12", "--results", "2", "--plain"],
    "packed-3comp": ["--nodes", "64", "--elements", "30", "--results", "3", "--components",
                     "3", "--compressed", "--seed", "7"],
    "v06-6comp": ["--nodes", "30", "--elements", "9", "--components", "6", "--version", "0.6"],
    "v07-parts": ["--nodes", "90", "--elements", "40", "--parts", "3", "--version", "0.7",
                  "--compressed", "--seed", "11"],
}


def run_zolinfo(*args, cwd=None):
    env = dict(os.environ, MORLANE_TEMP_PATH=str(cwd or "/tmp"))
    return subprocess.run([ZOLINFO, *map(str, args)], capture_output=True, text=True,
                          errors="surrogateescape", cwd=cwd, env=env)


@pytest.fixture(scope="session")
def models(tmp_path_factory):
    """Name -> path: the bundled example and the generated models."""
    folder = tmp_path_factory.mktemp("models")
    paths = {"example": EXAMPLE}
    for name, options in GENERATED.items():
        paths[name] = folder / f"{name}.zol"
        subprocess.run([ZOLGEN, "-o", paths[name], *options], check=True, capture_output=True)
    return paths


@pytest.fixture(params=["example", *GENERATED])
def model_path(request, models):
    return models[request.param]
