"""Programs that are right, and mistakes in them that the compiler must refuse.

A program is a file beside this one, right as it stands. A line

    #ifdef NAME  // refused: REGEX

begins a mistake: with NAME defined the compiler has to fail, with an error that REGEX finds. A comment line
`// NAME refused with OPTION: REGEX` is a mistake on the command line. The compiler and its options are the arguments.
"""
import concurrent.futures
import glob
import os
import re
import subprocess
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
DEFINED = re.compile(r"^#if(?:n?def) (\w+) +// refused: (.+)$", re.M)
OPTION = re.compile(r"^// (\w+) refused with (\S+): (.+)$", re.M)
COMPILER = sys.argv[1:]


def errors(file, *options):
    """The compiler's errors, "" when it takes the file."""
    done = subprocess.run([*COMPILER, "-fsyntax-only", *options, file], capture_output=True, text=True, timeout=120,
                          env={**os.environ, "LC_ALL": "C"})
    return "\n".join(line for line in done.stderr.splitlines() if "error" in line) if done.returncode else ""


class RefusedTest(unittest.TestCase):
    def test_programs_compile_and_mistakes_do_not(self):
        cases = []
        for file in sorted(glob.glob(os.path.join(HERE, "*.cpp"))):
            with open(file) as f:
                text = f.read()
            mistakes = [(name, "-D" + name, said) for name, said in DEFINED.findall(text)] + OPTION.findall(text)
            self.assertTrue(mistakes, file + " holds no mistake")
            cases += [(file, "as it stands", "", None)] + [(file, *mistake) for mistake in mistakes]
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            answers = list(pool.map(lambda c: errors(c[0], *filter(None, [c[2]])), cases))
        for (file, name, _, said), answer in zip(cases, answers):
            with self.subTest(program=os.path.basename(file), mistake=name):
                if said is None:
                    self.assertEqual(answer, "")
                else:
                    self.assertRegex(answer or "(compiled)", said)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
