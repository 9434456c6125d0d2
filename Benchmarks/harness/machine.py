"""What a result has to say about where it comes from."""

import datetime
import os
import platform
import re
import subprocess


def _output(*command, cwd=None):
    result = subprocess.run(command, cwd=cwd, capture_output=True, text=True, check=False)
    return result.stdout.strip() if result.returncode == 0 else "unknown"


def _cpu():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        names = re.findall(r"^model name\s*: (.*)$", file.read(), re.MULTILINE)
    return names[0] if names else platform.machine()


def _compiler(build_directory):
    try:
        with open(build_directory / "CMakeCache.txt", encoding="utf-8") as file:
            path = re.search(r"^CMAKE_CXX_COMPILER:[A-Z]+=(.*)$", file.read(), re.MULTILINE)
    except FileNotFoundError:
        path = None
    return _output(path[1], "--version").splitlines()[0] if path else "unknown"


def describe(repository, build_directory):
    changed = _output("git", "status", "--porcelain", "--untracked-files=no", cwd=repository)
    commit = _output("git", "rev-parse", "--short", "HEAD", cwd=repository)
    return {
        "date": datetime.datetime.now().astimezone().strftime("%Y-%m-%d %H:%M"),
        "commit": commit + (" with changes" if changed else ""),
        "compiler": _compiler(build_directory),
        "cpu": _cpu(),
        "cpus": len(os.sched_getaffinity(0)),
        "kernel": platform.release(),
        "load": f"{os.getloadavg()[0]:.1f}",
    }
