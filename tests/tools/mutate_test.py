# SPDX-License-Identifier: LicenseRef-qxkernel
"""tools/mutate on a project of one folder, whose tests look at one of its two functions."""

import json
import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

MUTATE = Path(__file__).resolve().parents[2] / 'tools' / 'mutate'
sys.dont_write_bytecode = True

SOURCE = '''\
#include "sum.hpp"
// a comment: 1 + 1
int sum(const int* x, int n)
{
    int s = 0;
    for (int i = 0; i < n; ++i)
        s += x[i];
    return s;
}

int nobodyAsks(int a, int b) { return a + b; }

int always(int a)
{
    if (a * a + 1 == 0 && "1 + 1"[0])
        return a * 0;
    return a * 0;
}
'''
HEADER = 'int sum(const int* x, int n);\nint nobodyAsks(int a, int b);\nint always(int a);\n'
TESTS = '''\
#include "sum.hpp"
#include <cstdio>
int main()
{
    const int x[] = {5, 7, 11, 100};
    if (sum(x, 3) == 23 && sum(x, 0) == 0 && always(5) == 0)
        return 0;
    std::puts("[  FAILED  ] Sum.Adds");
    return 1;
}
'''
NINJA = '''\
rule cxx
  command = {cxx} -Werror -MD -MF $out.d $flags -o $out -c $in
rule ar
  command = rm -f $out && ar qc $out $in
rule link
  command = {cxx} $in -o $out lib.a
build sum.o: cxx {root}/sum/sum.cpp
build tests.o: cxx {root}/sum/tests/main.cpp
  flags = -I{root}/sum
build lib.a: ar sum.o
build qx_sum_tests: link tests.o | lib.a
'''


class Mutate(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.root = Path(cls.folder.name).resolve()
        cls.build = cls.root / 'build'
        for path, text in (('sum/sum.cpp', SOURCE), ('sum/sum.hpp', HEADER), ('sum/tests/main.cpp', TESTS),
                           ('build/build.ninja', NINJA.format(root=cls.root, cxx=os.environ.get('CXX', 'c++')))):
            (cls.root / path).parent.mkdir(parents=True, exist_ok=True)
            (cls.root / path).write_text(text)
        subprocess.run(['ninja', '-C', cls.build], check=True, stdout=subprocess.DEVNULL)
        database = subprocess.run(['ninja', '-C', cls.build, '-t', 'compdb', 'cxx'], check=True, capture_output=True).stdout
        (cls.build / 'compile_commands.json').write_bytes(database)
        cls.status, cls.results = cls.mutate('--count', '1000')

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    @classmethod
    def mutate(cls, *options):
        """Its status and its results, each once: (old, new) -> (outcome, by)."""
        found = cls.root / 'found.json'
        done = subprocess.run([MUTATE, '--root', cls.root, '--build', cls.build, '--json', found, *options, 'sum'],
                              stdout=subprocess.DEVNULL)
        return done.returncode, {(r['old'], r['new']): (r['outcome'], r['by']) for r in json.loads(found.read_text())}

    def test_kills_what_the_tests_notice(self):
        self.assertEqual(self.results['s += x[i];', 's -= x[i];'], ('killed', 'Sum.Adds'))
        self.assertEqual(self.results['s += x[i];', ';'], ('killed', 'Sum.Adds'))
        self.assertEqual(self.results['int s = 0;', 'int s = 1;'], ('killed', 'Sum.Adds'))
        self.assertEqual(self.results['for (int i = 0; i < n; ++i)', 'for (int i = 0; i <= n; ++i)'], ('killed', 'Sum.Adds'))

    def test_kills_what_does_not_end_well(self):
        self.assertEqual(self.results['for (int i = 0; i < n; ++i)', 'for (int i = 0; i < n; --i)'][0], 'killed')

    def test_reports_survivors(self):
        line = 'int nobodyAsks(int a, int b) { return a + b; }'
        self.assertEqual(self.results[line, line.replace('a + b', 'a - b')], ('survived', ''))
        self.assertEqual(self.status, 1)

    def test_leaves_out_the_same_object_code(self):
        self.assertEqual(self.results['if (a * a + 1 == 0 && "1 + 1"[0])', 'if (a * a + 1 == 0 || "1 + 1"[0])'],
                         ('equivalent', 'same object code'))

    def test_changes_no_comment_no_text_no_directive_no_pointer(self):
        for old, new in self.results:
            self.assertFalse(old.startswith(('//', '#')), old)
            self.assertEqual(old.count('"1 + 1"'), new.count('"1 + 1"'))
            self.assertEqual(old.count('int* x'), new.count('int* x'))

    def test_same_seed_same_mutants(self):
        first, second, other = (list(self.mutate('--count', '4', '--seed', seed)[1]) for seed in ('7', '7', '8'))
        self.assertEqual(first, second)
        self.assertNotEqual(first, other)

    def test_believes_explained_equivalents(self):
        line = 'int nobodyAsks(int a, int b) { return a + b; }'
        explained = self.root / 'tests' / 'equivalent_mutants.txt'
        explained.parent.mkdir()
        explained.write_text('# comment\nsum/sum.cpp: nobody asks\n%s\n%s\n' % (line, line.replace('a + b', 'a - b')))
        status, results = self.mutate('--count', '1000')
        self.assertEqual(results[line, line.replace('a + b', 'a - b')], ('equivalent', 'explained'))
        self.assertEqual(status, 0)

    def test_leaves_sources_and_build_alone(self):
        self.assertEqual((self.root / 'sum/sum.cpp').read_text(), SOURCE)
        again = subprocess.run(['ninja', '-C', self.build, '-n'], capture_output=True, text=True, check=True).stdout
        self.assertIn('no work to do', again)


if __name__ == '__main__':
    unittest.main()
