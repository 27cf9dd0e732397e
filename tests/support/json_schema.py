#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

"""Holds JSON objects against schemas: json_schema.py FOLDER OUTPUT

Reads the names of schemas in FOLDER, one a line, and holds what the file OUTPUT then has against each: one object, or
after the name and "--lines" one object a line. Says what is wrong, then "fits" or "does not fit": that when the schema
is none, an object does not fit it, or there is no object.
"""

import json
import sys

from jsonschema import Draft202012Validator
from jsonschema.exceptions import SchemaError


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


def complaints_about(schema_file, output_file, is_lines):
    with open(schema_file, encoding="utf-8") as file:
        schema = json.load(file)
    Draft202012Validator.check_schema(schema)
    yield from (f"{place} takes members that it does not name" for place in open_objects(schema))
    with open(output_file, encoding="utf-8") as file:
        text = file.read()
    pieces = text.splitlines() if is_lines else [text]
    if not pieces:
        yield "there is no output"
    for piece in pieces:
        for error in Draft202012Validator(schema).iter_errors(json.loads(piece)):
            yield f"{error.json_path}: {error.message}"
            yield from (f"  {part.json_path}: {part.message}" for part in error.context)


def main():
    folder, output = sys.argv[1:]
    for line in sys.stdin:
        name, *flags = line.split()
        try:
            complaints = list(complaints_about(f"{folder}/{name}.schema.json", output, "--lines" in flags))
        except (OSError, ValueError, SchemaError) as error:
            complaints = [f"{name}: {error}"]
        print(*complaints, "does not fit" if complaints else "fits", sep="\n", flush=True)


if __name__ == "__main__":
    main()
