"""For coverage.sh: adds up what gcov says of the product in every object, and prints it by folder.

coverage.py PROJECT BUILD [OUTPUT]
"""

import collections
import json
import os
import subprocess
import sys

ROOMS = ("InstallationDeployer", "general")


def notes(build):
    """The notes of all objects, whether or not they ever ran. Those of tests count, too: of an inline function that many
    objects have, a program holds one, which may be a test's."""
    for folder, _, names in os.walk(build):
        for name in names:
            if name.endswith(".gcno"):
                yield os.path.join(folder, name)


def counts(note):
    """What gcov says of one object, as documents."""
    answer = subprocess.run(["gcov", "--json-format", "--stdout", "--branch-probabilities", note],
                            capture_output=True, check=True, cwd=os.path.dirname(note))
    for line in answer.stdout.splitlines():
        if line.startswith(b"{"):
            yield json.loads(line)


class Sums:
    """Lines and branches of the product; what several objects have of a header is added up."""

    def __init__(self, project):
        self.project = project
        self.lines = collections.defaultdict(collections.Counter)  # by file, then by line
        self.branches = collections.defaultdict(dict)  # by file, then by line and function

    def add(self, document):
        for file in document["files"]:
            path = os.path.realpath(os.path.join(document["current_working_directory"], file["file"]))
            path = os.path.relpath(path, self.project)
            if path.split("/")[0] in ROOMS:
                for line in file["lines"]:
                    self.add_line(path, line)

    def add_line(self, path, line):
        number = line["line_number"]
        self.lines[path][number] += line["count"]
        taken = [branch["count"] for branch in line["branches"] if not branch["throw"]]
        if not taken:
            return
        # A template or an inline function is not always translated into the same branches.
        key = (number, line.get("function_name"), len(taken))
        before = self.branches[path].get(key, [0] * len(taken))
        self.branches[path][key] = [one + other for one, other in zip(before, taken)]

    def by_folder(self):
        folders = collections.defaultdict(lambda: [0, 0, 0, 0])  # lines run and all, branches taken and all
        for path, lines in self.lines.items():
            sums = folders[os.path.dirname(path)]
            sums[0] += sum(count > 0 for count in lines.values())
            sums[1] += len(lines)
            for taken in self.branches[path].values():
                sums[2] += sum(count > 0 for count in taken)
                sums[3] += len(taken)
        return folders

    def never_run(self):
        """FILE:FIRST-LAST for each run of lines that nothing ran; lines without code do not part them."""
        for path in sorted(self.lines):
            first = last = None
            for number, count in sorted(self.lines[path].items()) + [(None, 1)]:
                if count == 0:
                    first, last = first or number, number
                elif first:
                    yield f"{path}:{first}" + (f"-{last}" if last != first else "")
                    first = None


def share(part, whole):
    return f"{100 * part / whole:5.1f} %" if whole else "      -"


def print_table(folders):
    print(f"{'lines':>16} {'':7} {'branches':>16} {'':7}  folder")
    total = [0, 0, 0, 0]
    for folder in sorted(folders):
        total = [one + other for one, other in zip(total, folders[folder])]
    for folder, sums in sorted(folders.items()) + [("all", total)]:
        print(f"{sums[0]:7} of {sums[1]:5} {share(sums[0], sums[1])} "
              f"{sums[2]:7} of {sums[3]:5} {share(sums[2], sums[3])}  {folder}")


def main(project, build, output=None):
    sums = Sums(os.path.realpath(project))
    found = 0
    for note in notes(build):
        found += 1
        for document in counts(note):
            sums.add(document)
    if found == 0:
        sys.exit("coverage.sh: nothing of the product was built with counters")
    print_table(sums.by_folder())
    with open(output, "w") if output else os.fdopen(os.dup(1), "w") as stream:
        sys.stdout.flush()
        if not output:
            print("\nRun by no test:", file=stream)
        for line in sums.never_run():
            print(line, file=stream)


main(*sys.argv[1:])
