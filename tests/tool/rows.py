"""The tables of cases beside the tests: LEFT => RIGHT, a line each."""
import pathlib


def rows_of(name):
    lines = pathlib.Path(__file__).with_name(name).read_text(encoding="utf-8").splitlines()
    return [line.split(" => ", 1) for line in lines if not line.startswith("#")]
