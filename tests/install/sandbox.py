#!/usr/bin/env python3
"""sandbox.py UNIT COMMAND...: runs the command with the system calls of the unit.

What `SystemCallFilter=` refuses by name fails with EPERM, as under systemd; any other call that it
does not allow ends the process with SIGSYS, so that nothing is refused unseen.
"""

import ctypes
import errno
import os
import subprocess
import sys

ALLOW = 0x7FFF0000
KILL_PROCESS = 0x80000000
FAIL = 0x00050000 | errno.EPERM
UNKNOWN = -1  # no system call of this architecture has a negative number


def expand(names):
    """The system calls of a filter's words, of which some are sets of others."""
    calls = set()
    for name in names:
        if not name.startswith("@"):
            calls.add(name)
            continue
        listed = subprocess.run(["systemd-analyze", "syscall-filter", "--no-pager", name],
                                check=True, capture_output=True, text=True).stdout
        words = [line.strip() for line in listed.splitlines()[1:]]
        calls |= expand(word for word in words if word and not word.startswith("#"))
    return calls


def filters(unit):
    allowed, refused = set(), set()
    for line in open(unit, encoding="utf-8"):
        if line.startswith("SystemCallFilter="):
            words = line.split("=", 1)[1].strip()
            target = refused if words.startswith("~") else allowed
            target |= expand(words.lstrip("~").split())
    if not allowed:
        sys.exit(f"{unit} allows no system call")
    return allowed - refused, refused


def main():
    unit, command = sys.argv[1], sys.argv[2:]
    allowed, refused = filters(unit)
    seccomp = ctypes.CDLL("libseccomp.so.2")
    seccomp.seccomp_init.restype = ctypes.c_void_p
    context = ctypes.c_void_p(seccomp.seccomp_init(ctypes.c_uint32(KILL_PROCESS)))
    for action, names in ((ALLOW, allowed), (FAIL, refused)):
        for name in names:
            number = seccomp.seccomp_syscall_resolve_name(name.encode())
            if number > UNKNOWN:
                if seccomp.seccomp_rule_add(context, ctypes.c_uint32(action), number, 0) != 0:
                    sys.exit(f"no rule for {name}")
    if seccomp.seccomp_load(context) != 0:
        sys.exit("the filter cannot be loaded")
    os.execv(command[0], command)


main()
