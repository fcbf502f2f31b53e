#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Runs the built hcxadm under the built hcxsim and checks each JSON document against docs/hcxadm.schema.json.

hcxadm_schema.py HCXADM HCXSIM SCHEMA
A noun without a command line below fails the check.
"""
import json
import subprocess
import sys
import tempfile

import jsonschema

# Command line -> name of the document. A new noun adds its lines here.
COMMANDS = {
    "list": "hcxadm.list",
    "show 0": "hcxadm.show",
    "show host11": "hcxadm.show",
    "show 99": "hcxadm.show",
    "port": "hcxadm.port.list",
    "port list 1": "hcxadm.port.list",
    "lun": "hcxadm.lun.list",
    "lun 1": "hcxadm.lun.list",
    "caps": "hcxadm.caps",
    "caps --off": "hcxadm.caps",
    "log": "hcxadm.log",
    "log set trace,error": "hcxadm.log",
    "log off": "hcxadm.log",
    "version": "hcxadm.version",
    "bogus": "hcxadm",
}


def run(tool, sim, state, line):
    command = [sim, "--state", state, "--", tool, "--output", "json"] + line.split()
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=60)


def main():
    tool, sim, schema_file = sys.argv[1:]
    with open(schema_file, encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft7Validator.check_schema(schema)
    failed = 0
    with tempfile.TemporaryDirectory() as state:
        for line, name in COMMANDS.items():
            result = run(tool, sim, state, line)
            try:
                document = json.loads(result.stdout)
                # The one definition first: its message says which key is wrong.
                jsonschema.validate(document, {**schema["definitions"][name], "definitions": schema["definitions"]})
                jsonschema.validate(document, schema)
                assert document["schema"]["name"] == name, "the document is named " + document["schema"]["name"]
                first = document["errors"][0]["status"] if document["errors"] else 0
                assert result.returncode == first, f"exit status {result.returncode}, first error {first}"
            except (ValueError, KeyError, AssertionError, jsonschema.ValidationError) as error:
                failed += 1
                where = "/".join(str(part) for part in getattr(error, "absolute_path", []))
                print(f"hcxadm {line}: {where} {getattr(error, 'message', error)}\n{result.stderr}")
        nouns = run(tool, sim, state, "words").stdout.split()
        for noun in nouns:
            if not noun.startswith("--") and not any(line.split()[0] == noun for line in COMMANDS):
                failed += 1
                print(f"no command line of {noun} is checked")
    print(f"{len(COMMANDS)} documents, {failed} wrong")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
