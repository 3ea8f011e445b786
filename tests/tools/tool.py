"""What the tests of the tools share. Environment: TOOLS the folder of the tools."""
import contextlib
import importlib.util
import io
import os
import sys
from unittest import mock


def load(name):
    """The program of a tool, as a module; its folder is searched for others."""
    folder = os.path.join(os.environ["TOOLS"], name)
    sys.path.insert(0, folder)
    spec = importlib.util.spec_from_file_location("vyx_" + name, os.path.join(folder, "__main__.py"))
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def run(program, *arguments):
    """Runs a tool in this process. Result: exit status, standard output, standard error."""
    streams = [io.TextIOWrapper(io.BytesIO(), "utf-8", "surrogateescape", write_through=True) for _ in range(2)]
    with mock.patch.object(sys, "argv", ["vyx-tool", *arguments]), contextlib.redirect_stdout(streams[0]), \
            contextlib.redirect_stderr(streams[1]):
        try:
            status = program.main()
        except SystemExit as end:
            status = end.code
    return status, *(stream.buffer.getvalue().decode("utf-8", "surrogateescape") for stream in streams)
