"""Prints the names of the public functions, as strings of a C++ list: functions.py vyx-api.json"""

import json
import sys

for name in sorted({function["name"] for function in json.load(open(sys.argv[1], encoding="utf-8"))["functions"]}):
    print(f'"{name}",')
