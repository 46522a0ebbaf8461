#!/usr/bin/python3
"""jobs_test.py HOST [TEST ...]: `rxp2k7 convert --jobs`: several processes do what one does, and one that dies dies alone."""
import json
import os
import resource
import signal
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'support'))
import host_case  # noqa: E402
from host_case import HostCase  # noqa: E402

LONG = ('--compress', 9, '--fragment-size', 2000)  # a conversion of many seconds


def timeless(results):
    return [{k: v for k, v in r.items() if k not in ('seconds', 'megabytes_per_second')} for r in results]


class Jobs(HostCase):
    def make(self, *names, shots=3000):
        for seed, name in enumerate(names):
            self.simulate(name + '.rxp', '--seed', seed, shots=shots)
        return [name + '.rxp' for name in names]

    def process_of(self, parent, recording):
        """The child that reads a recording; None while there is none."""
        for child in self.children_of(parent):
            try:
                names = [os.readlink('/proc/%d/fd/%s' % (child, fd)) for fd in os.listdir('/proc/%d/fd' % child)]
            except FileNotFoundError:
                continue
            if self.path(recording) in names and self.size_of(recording[:-4] + '.k7.part') > 100000:
                return child
        return None


class Together(Jobs):
    def test_give_the_same_files_and_results_as_one_process(self):
        names = self.make('a', 'b', 'c', 'd', 'e') + ['missing.rxp', self.write('damaged.rxp', b'x' * 400)]
        for folder in ('one', 'many'):
            os.mkdir(self.path(folder))
        one = self.convert('--out-dir', 'one', *names, code=6)
        many = self.convert('--out-dir', 'many', '--jobs', 3, *names, code=6)
        for r in one:
            r['output'] = r['output'].replace('one/', 'many/')
        self.assertEqual(timeless(many), timeless(one))
        self.assertEqual([r['exit_code'] for r in many][:6], [0, 0, 0, 0, 0, 3])
        self.assertEqual(os.listdir(self.path('one')), os.listdir(self.path('many')))
        for name in os.listdir(self.path('one')):
            self.assertEqual(self.read('one/' + name), self.read('many/' + name), name)

    def test_tell_summaries_in_the_order_given_and_nothing_else(self):
        self.make('long', shots=300000)
        names = ['long.rxp'] + self.make('a', 'b', 'c', shots=500)
        one = self.good('convert', *names).stdout
        many = self.good('convert', '--jobs', 4, *names).stdout
        shown = [[line for line in text.splitlines() if 'time ' not in line] for text in (one, many)]
        self.assertEqual(shown[1], shown[0])
        self.assertEqual([line.split(' -> ')[0] for line in shown[1] if ' -> ' in line], names)

    def test_are_no_more_at_a_time_than_asked_for(self):
        names = self.make('a', 'b', 'c', 'd', shots=100000)
        p = self.start('convert', '--jobs', 2, *LONG, *names)
        most, parts = 0, set()
        while p.poll() is None and len(parts) < 3:
            children = self.children_of(p.pid)
            most = max(most, len(children))
            parts |= {n for n in os.listdir(self.folder) if n.endswith('.part')}
        self.assertEqual(most, 2)

    def test_take_a_number_or_auto(self):
        self.make('a', 'b', shots=100)
        for jobs in ('0', 'auto', '1', '1024'):
            self.assertEqual(len(self.convert('--jobs', jobs, 'a.rxp', 'b.rxp')), 2)
        for jobs in ('-1', '1.5', 'many', '1025', ''):
            self.assertEqual(self.host('convert', '--jobs', jobs, 'a.rxp', 'b.rxp').returncode, 2, jobs)

    def test_never_write_one_output_twice(self):
        self.make('a', 'b')
        os.mkdir(self.path('more'))
        self.simulate('more/a.rxp')
        self.write('b.rxp_001', b'')
        for names, word in ((('a.rxp', 'more/a.rxp'), 'would both be written'),
                            (('b.rxp', 'b.rxp_001'), 'is read as part of')):
            p = self.host('convert', '--jobs', 2, *names)
            self.assertEqual(p.returncode, 2)
            self.assertIn(word, p.stderr)
        self.assertEqual([n for n in os.listdir(self.folder) if n.endswith('.k7')], [])

    def test_convert_live_streams_too(self):
        self.make('a', 'b')
        replay = self.start('replay', 'a.rxp', '--rdtp', 0)
        uri = replay.stdout.readline().strip()
        results = self.convert('--jobs', 2, uri, 'b.rxp', '--fragment-size', 1000)
        self.assertEqual([r['input'] for r in results], [uri, 'b.rxp'])
        self.convert('a.rxp', '--fragment-size', 1000)
        self.assertEqual(self.read('current.k7'), self.read('a.k7'))

    def test_show_one_line_for_all(self):
        names = self.make('a', 'b', 'c', shots=100000)
        code, shown = self.on_terminal('convert', '--jobs', 2, *LONG, *names)
        self.assertEqual(code, 0)
        for words in ('\r0 of 3  [', ' of 3  [', ' MB/s', ' left\x1b[K'):
            self.assertIn(words, shown)
        self.assertNotIn('\n', shown)
        self.assertTrue(shown.endswith('\r\x1b[K'), shown[-40:])


class Dying(Jobs):
    def test_one_that_crashes_is_one_failed_input(self):
        names = self.make('killed', shots=600000) + self.make('a', 'b', 'c')
        p = self.start('convert', '--json', '--jobs', 2, *LONG, *names)
        child = self.stopped(p.pid, 'killed.rxp')['killed.rxp']
        self.wait_for(lambda: os.path.exists(self.path('killed.k7.part')) or os.kill(child, signal.SIGCONT))
        os.kill(child, signal.SIGKILL)
        out, err = p.communicate(timeout=60)
        self.assertEqual(p.returncode, 6)
        results = json.loads(out)['results']
        self.assertEqual([(r['input'], r['exit_code']) for r in results],
                         [('killed.rxp', 1), ('a.rxp', 0), ('b.rxp', 0), ('c.rxp', 0)])
        self.assertIn('signal 9', results[0]['text'])
        self.assertIn('rxp2k7: killed.rxp: its process was ended by signal 9', err)
        self.assertEqual({n for n in os.listdir(self.folder) if '.k7' in n},
                         {'killed.k7.part', 'a.k7', 'b.k7', 'c.k7'})

    def test_more_processes_than_there_can_be_wait_for_each_other(self):
        names = self.make(*'abcdefgh', shots=20000)
        few_files = 30  # room for the descriptors of some of the jobs
        results = json.loads(self.host('convert', '--json', '--jobs', 8, *names, preexec_fn=lambda: resource.setrlimit(
            resource.RLIMIT_NOFILE, (few_files, few_files))).stdout)['results']
        self.assertEqual([(r['input'], r['exit_code'], r['shots']) for r in results], [(n, 0, 20000) for n in names])

    def test_one_that_cannot_begin_at_all_is_told(self):
        names = self.make('a', 'b', shots=100)
        too_few = 9  # standard ones, the pipe of signals, and no room for the four pairs of a job
        p = self.host('convert', '--json', '--jobs', 2, *names, preexec_fn=lambda: resource.setrlimit(
            resource.RLIMIT_NOFILE, (too_few, too_few)))
        self.assertEqual(p.returncode, 6)
        for r in json.loads(p.stdout)['results']:
            self.assertEqual(r['exit_code'], 1)
            self.assertIn('no process can be made: Too many open files', r['text'])

    def test_none_outlives_its_parent(self):
        names = self.make('a', 'b', shots=600000)
        p = self.start('convert', '--jobs', 2, *LONG, *names)
        children = self.stopped(p.pid, *names).values()
        self.assertEqual(sorted(children), sorted(self.children_of(p.pid)))
        self.wait_for(lambda: all(os.path.exists(self.path(n)) for n in ('a.k7.part', 'b.k7.part'))
                      or any(os.kill(c, signal.SIGCONT) for c in children))
        os.kill(p.pid, signal.SIGKILL)
        for c in children:
            os.kill(c, signal.SIGCONT)
        self.wait_for(lambda: not any(self.is_alive(c) for c in children), 20)
        self.assertEqual({n for n in os.listdir(self.folder) if '.k7' in n}, {'a.k7.part', 'b.k7.part'})

    def stopped(self, parent, *names):
        """The processes of these inputs, each stopped as soon as it is there, so that it cannot end meanwhile."""
        found = {}

        def look():
            for n in names:
                child = found.get(n) or self.process_of(parent, n)
                if child and n not in found:
                    os.kill(child, signal.SIGSTOP)
                    found[n] = child
            return len(found) == len(names)
        self.wait_for(look)
        return found

    @staticmethod
    def is_alive(pid):
        try:
            with open('/proc/%d/stat' % pid) as f:
                return f.read().rsplit(')', 1)[1].split()[0] != 'Z'
        except FileNotFoundError:
            return False


if __name__ == '__main__':
    host_case.main()
