#!/usr/bin/env python3
"""Asks an editor's language server what it shows of every function, and compares that with the headers.

    hover.py CLANGD INCLUDE JSON    CLANGD is the program; INCLUDE the folder of the headers; JSON the description

Each C function has a comment of its own with its purpose, its result unless it has none, and what threads may do; and
clangd, asked for the function's name, shows just that comment. Prints what differs, and the number of functions.
"""

import json
import pathlib
import re
import subprocess
import sys
import tempfile


class Server:
    """The language server, spoken to by one request at a time."""

    def __init__(self, program):
        self.process = subprocess.Popen([program, "--background-index=false", "--log=error"], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.count = 0

    def send(self, method, params, **more):
        body = json.dumps({"jsonrpc": "2.0", "method": method, "params": params, **more}).encode()
        self.process.stdin.write(b"Content-Length: %d\r\n\r\n" % len(body) + body)
        self.process.stdin.flush()

    def receive(self):
        length = 0
        while (line := self.process.stdout.readline()) not in (b"\r\n", b""):
            name, _, value = line.partition(b":")
            if name.lower() == b"content-length":
                length = int(value)
        if not length:
            raise SystemExit("clangd has ended")
        return json.loads(self.process.stdout.read(length))

    def ask(self, method, params):
        self.count += 1
        self.send(method, params, id=self.count)
        while (answer := self.receive()).get("id") != self.count:
            pass
        return answer.get("result")


def words(text):
    """Text without white space, which the server lays out anew."""
    return "".join(text.split())


def faults_of(function, shown):
    notes = function["doc"]["notes"]
    if not function["comment"]:
        yield "has no comment of its own right before it"
    elif words(function["comment"]) not in words(shown):
        yield f"clangd shows something else: {shown!r}"
    if not function["doc"]["purpose"]:
        yield "has no purpose"
    if function["result"] != "void" and "Result" not in notes:
        yield "has no Result"
    if "Threads" not in notes:
        yield "has no Threads"


def main(program, include, source):
    functions = [item for item in json.loads(pathlib.Path(source).read_text())["functions"] if item["language"] == "c"]
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(folder, "compile_flags.txt").write_text(f"-xc\n-std=c11\n-I{pathlib.Path(include).resolve()}\n")
        file = pathlib.Path(folder, "names.c")
        text = "#include <vyx/vyx.h>\nvoid (*names[])(void) = {\n" + "".join(f"(void (*)(void)){f['name']},\n" for f in functions)
        text += "};\n"
        file.write_text(text)
        server = Server(program)
        server.ask("initialize", {"processId": None, "rootUri": None, "capabilities": {
            "textDocument": {"hover": {"contentFormat": ["plaintext"]}}}})
        server.send("initialized", {})
        document = {"uri": file.as_uri(), "languageId": "c", "version": 1, "text": text}
        server.send("textDocument/didOpen", {"textDocument": document})
        count = 0
        for line, function in enumerate(functions, start=2):
            place = {"textDocument": {"uri": file.as_uri()}, "position": {"line": line, "character": 20}}
            answer = server.ask("textDocument/hover", place)
            for fault in faults_of(function, answer["contents"]["value"] if answer else ""):
                print(f"{function['header']}:{function['line']}: {function['name']} {fault}")
                count += 1
        server.ask("shutdown", None)
        server.send("exit", None)
        server.process.wait(60)
    print(f"{len(functions)} functions, {count} faults")
    return 1 if count or not functions else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
