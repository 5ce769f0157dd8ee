#!/usr/bin/env python3
"""Answers, for each line of JSON on standard input, whether a JSON Schema takes it.

schemacheck.py SCHEMA
Says "ready" once it has read the schema, then "valid" or "invalid: WHY" for each line.
"""
import json
import sys

try:
    import jsonschema
except ImportError:
    sys.exit("python3-jsonschema is not installed")

with open(sys.argv[1], encoding="utf-8") as file:
    schema = json.load(file)
jsonschema.Draft7Validator.check_schema(schema)
validator = jsonschema.Draft7Validator(schema)
print("ready", flush=True)
for line in sys.stdin:
    error = jsonschema.exceptions.best_match(validator.iter_errors(json.loads(line)))
    print("invalid: " + error.message.replace("\n", " ") if error else "valid", flush=True)
