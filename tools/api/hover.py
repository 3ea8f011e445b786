#!/usr/bin/env python3
"""Asks an editor's language server what it shows of every function, and compares that with the headers.

    hover.py CLANGD INCLUDE JSON    CLANGD is the program; INCLUDE the folder of the headers; JSON the description

Each C function has a comment of its own with its purpose, its result unless it has none, and what threads may do; each
method and operator with its purpose and threads, but for destructors that do nothing. clangd, asked for the name, shows
just that comment. Prints what differs, and the number of functions.
"""

import json
import pathlib
import shutil
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
    if function.get("language") == "c" and function["result"] != "void" and "Result" not in notes:
        yield "has no Result"
    if "Threads" not in notes:
        yield "has no Threads"


def declared(api):
    """Header, line and description of each function, method and operator."""
    for function in api["functions"]:
        yield function["header"], function
    for each in api["classes"]:
        for method in each["methods"]:
            if method["comment"] or "~" not in method["name"]:
                yield each["header"], method


def column(line, name):
    """Where a declaration has its name."""
    return line.index(name.rpartition("::")[2] + "(")


def main(program, include, source):
    count = faults = 0
    with tempfile.TemporaryDirectory() as folder:
        top = pathlib.Path(folder, "include")
        shutil.copytree(include, top)
        pathlib.Path(folder, "compile_flags.txt").write_text(f"-xc++\n-std=c++17\n-I{top}\n")
        server = Server(program)
        server.ask("initialize", {"processId": None, "rootUri": None, "capabilities": {
            "textDocument": {"hover": {"contentFormat": ["plaintext"]}}}})
        server.send("initialized", {})
        texts = {}
        for header, function in declared(json.loads(pathlib.Path(source).read_text())):
            file = top / header
            if header not in texts:
                texts[header] = file.read_text()
                server.send("textDocument/didOpen", {"textDocument": {
                    "uri": file.as_uri(), "languageId": "cpp", "version": 1, "text": texts[header]}})
            line = function["line"] - 1
            place = {"line": line, "character": column(texts[header].split("\n")[line], function["name"])}
            answer = server.ask("textDocument/hover", {"textDocument": {"uri": file.as_uri()}, "position": place})
            for fault in faults_of(function, answer["contents"]["value"] if answer else ""):
                print(f"{header}:{function['line']}: {function['name']} {fault}")
                faults += 1
            count += 1
        server.ask("shutdown", None)
        server.send("exit", None)
        server.process.wait(60)
    print(f"{count} functions, {faults} faults")
    return 1 if faults or not count else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
