#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

"""Holds JSON objects against a schema: json_schema.py SCHEMA [--lines] < OUTPUT

Without --lines the output is one object, with it one object a line. Says what is wrong and ends with 1 when the schema
is none, an object does not fit it, or there is no object.
"""

import json
import sys

from jsonschema import Draft202012Validator


def open_objects(schema, place="schema"):
    """The objects of a schema that would let members through that it does not name."""
    if isinstance(schema, list):
        for number, part in enumerate(schema):
            yield from open_objects(part, f"{place}/{number}")
    elif isinstance(schema, dict):
        if "properties" in schema and schema.get("additionalProperties") is not False:
            yield place
        for key, part in schema.items():
            yield from open_objects(part, f"{place}/{key}")


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        schema = json.load(file)
    Draft202012Validator.check_schema(schema)
    complaints = [f"{place} takes members that it does not name" for place in open_objects(schema)]
    text = sys.stdin.read()
    pieces = text.splitlines() if "--lines" in sys.argv[2:] else [text]
    if not pieces:
        complaints.append("there is no output")
    for piece in pieces:
        for error in Draft202012Validator(schema).iter_errors(json.loads(piece)):
            complaints.append(f"{error.json_path}: {error.message}")
            complaints += [f"  {part.json_path}: {part.message}" for part in error.context]
    print("\n".join(complaints), end="")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
