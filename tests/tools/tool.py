"""What the tests of the tools share. Environment: TOOLS the folder of the tools."""
import importlib.util
import os
import sys
import tempfile

NOBODY = 65534


def load(name):
    """The program of a tool, as a module; its folder is searched for others."""
    folder = os.path.join(os.environ["TOOLS"], name)
    sys.path.insert(0, folder)
    spec = importlib.util.spec_from_file_location("vyx_" + name, os.path.join(folder, "__main__.py"))
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def run(program, *arguments, user=None, folder="/"):
    """Runs a tool in a child, if need be as another user. Result: exit status, standard output, standard error."""
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        child = os.fork()
        if child == 0:
            status = 99
            try:
                os.dup2(out.fileno(), 1)
                os.dup2(err.fileno(), 2)
                if user is not None:
                    os.setgroups([])
                    os.setgid(user)
                    os.setuid(user)
                os.chdir(folder)
                sys.argv = ["vyx-tool", *arguments]
                sys.stdout = os.fdopen(1, "w", closefd=False)
                sys.stderr = os.fdopen(2, "w", closefd=False)
                status = program.main()
            except SystemExit as end:
                status = end.code
            finally:
                sys.stdout.flush()
                sys.stderr.flush()
                os._exit(status)
        status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
        out.seek(0)
        err.seek(0)
        return status, out.read().decode("utf-8", "surrogateescape"), err.read().decode()
