# SPDX-License-Identifier: MIT
"""Compares the space groups of orvelspg.dat, as the program expands them, with the library gemmi.

Use: check_tables data operations.txt, then python3 compare_groups.py operations.txt
The 230 standard settings are compared with gemmi's own table of settings, and all 530 with the
groups that gemmi makes of the Hall symbols. Needs the Python module gemmi; prints the counts and
returns 1 if a group differs.
"""
import sys

import gemmi


def read_groups(path):
    """Yields (number, standard, choice, Hall symbol, set of operations in units of 1/24)."""
    with open(path) as file:
        for line in file:
            number, standard, choice, hall, count = line.rstrip("\n").split(";")
            ops = [tuple(int(x) for x in next(file).split()) for _ in range(int(count))]
            yield int(number), standard == "1", choice, hall, set(ops), len(ops)


def operations(group_ops):
    """The operations of a gemmi group as tuples of nine rotations and three translations."""
    den = gemmi.Op.DEN
    return {tuple(x // den for row in op.rot for x in row) + tuple(t % den for t in op.tran)
            for op in group_ops}


def standard_entry(number, choice):
    """The setting of gemmi's own table with this number and choice."""
    entries = [sg for sg in gemmi.spacegroup_table() if sg.number == number]
    if choice in ("H", "2"):
        return next(sg for sg in entries if sg.ext == choice)
    return next(sg for sg in entries if sg.is_reference_setting() or sg.qualifier == choice)


def main():
    table = hall_symbols = standard_count = count = 0
    for number, standard, choice, hall, ops, listed in read_groups(sys.argv[1]):
        count += 1
        complete = len(ops) == listed
        if complete and ops == operations(gemmi.symops_from_hall(hall)):
            hall_symbols += 1
        else:
            print("Hall symbol", number, choice, hall, "differs")
        if standard:
            standard_count += 1
            if complete and ops == operations(standard_entry(number, choice).operations()):
                table += 1
            else:
                print("standard setting", number, choice, "differs")
    print(f"{table} of {standard_count} standard settings as in gemmi's table,",
          f"{hall_symbols} of {count} settings as from their Hall symbols")
    return 0 if table == standard_count == 230 and hall_symbols == count == 530 else 1


if __name__ == "__main__":
    sys.exit(main())
