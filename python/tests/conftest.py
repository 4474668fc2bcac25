# The tests use the project's colour configuration; the library reads $OCIO
# at its first colour-management call, so it is set before imb is imported.
import os
import pathlib

SHARE = pathlib.Path(__file__).resolve().parents[2] / "share"
os.environ["OCIO"] = str(SHARE / "ocio" / "config.ocio")
for var in ("OCIO_ACTIVE_DISPLAYS", "OCIO_ACTIVE_VIEWS", "IMB_OCIO_PARSE_MODE", "IMB_OCIO_ALWAYS_TAG"):
    os.environ.pop(var, None)
