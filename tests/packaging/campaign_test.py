#!/usr/bin/python3
"""campaign_test.py SOURCE BUILD CMAKE COMPILER TEST ...: the campaign example over 40 recordings, of which one is damaged,
one is missing, and the task of one is killed midway."""
import json
import os
import re
import shutil
import socket
import subprocess
import tempfile
import time
import unittest

import h5py

import staged
from staged import HOST, read, run

# Stands for the program: writes down what it is asked for, and takes the killed recording's first task away, its shell
# included, as soon as there is an output.
WITNESS = '''#!/bin/bash
echo "$2" >> "{folder}/asked"
if [[ $2 == */killed.rxp && ! -e {folder}/killed ]]; then
  touch "{folder}/killed"
  "{host}" "$@" & program=$!
  while [ -d "/proc/$program" ] && [ ! -e "$4/killed.k7.part" ]; do :; done
  kill -KILL $PPID $program $$
fi
exec "{host}" "$@"
'''


class Campaign(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix='rxp2k7-')
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.example = os.path.join(staged.SOURCE, 'examples', 'campaign')
        self.out = self.path('out')
        self.make_recordings()
        with open(self.path('witness'), 'w') as f:
            f.write(WITNESS.format(folder=self.folder, host=HOST))
        os.chmod(self.path('witness'), 0o755)
        self.env = dict(os.environ, RXP2K7=self.path('witness'), HOME=self.folder)

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def make_recordings(self):
        names = ['scan%02d' % i for i in range(37)] + ['damaged', 'missing', 'killed']
        run(HOST, 'simulate', self.path('scan00.rxp'), '--shots', 500)
        run(HOST, 'simulate', self.path('killed.rxp'), '--shots', 400000)
        with open(self.path('scan00.rxp'), 'rb') as f:
            whole = f.read()
        with open(self.path('damaged.rxp'), 'wb') as f:
            f.write(b'x' * 16 + whole[16:])
        for name in names[1:37]:
            shutil.copy(self.path('scan00.rxp'), self.path(name + '.rxp'))
        with open(self.path('manifest.txt'), 'w') as f:
            f.writelines(self.path(n + '.rxp') + '\n' for n in names)
        self.whole = set(names) - {'damaged', 'missing'}

    def asked(self):
        """Which recordings the program was asked for since the last call."""
        if not os.path.exists(self.path('asked')):
            return []
        names = [os.path.basename(line)[:-4] for line in read(self.path('asked')).splitlines()]
        os.remove(self.path('asked'))
        return sorted(names)

    def outputs(self):
        return {n[:-3] for n in os.listdir(self.out) if n.endswith('.k7')}

    def check(self, run_all):
        """`run_all()` runs the whole campaign once."""
        run_all()
        self.assertEqual(self.asked(), sorted(self.whole | {'damaged', 'missing'}))
        self.assertEqual(self.outputs(), self.whole - {'killed'})
        self.assertTrue(os.path.exists(self.path('out', 'trying', 'killed', 'killed.k7.part')))
        run_all()
        self.assertEqual(self.asked(), ['damaged', 'killed', 'missing'])
        self.check_outputs()
        run(HOST, 'simulate', self.path('scan07.rxp'), '--shots', 500, '--seed', 2)
        with open(self.path('scan08.rxp_001'), 'wb'):
            pass
        run_all()
        self.assertEqual(self.asked(), ['damaged', 'missing', 'scan07', 'scan08'])
        self.check_outputs()

    def check_outputs(self):
        self.assertEqual(self.outputs(), self.whole)
        for name in self.whole:
            with h5py.File(self.path('out', name + '.k7')) as f:
                times = f['Slice_0/Shots/StandardCartesianChart3D/GPSTime']
                rows = sum(d.shape[0] for n, d in times.items() if n.startswith('Fragment_'))
                self.assertEqual(rows, 400000 if name == 'killed' else 500, name)
        for name, code_words in (('damaged', 'No reflectance'), ('missing', 'no such file')):
            result = json.loads(read(self.path('out', 'reports', name + '.json')))['results'][0]
            self.assertIn(code_words, result['text'])
        self.assertEqual(os.listdir(self.path('out', 'damaged')), ['damaged.k7'])
        self.assertEqual([n for _, _, names in os.walk(self.path('out', 'trying')) for n in names], [])


class Task(Campaign):
    """One recording's task alone."""

    def make_recordings(self):
        run(HOST, 'simulate', self.path('scan.rxp'), '--shots', 100000)

    def start(self, name='scan.rxp'):
        return subprocess.Popen([os.path.join(self.example, 'convert_one'), self.path(name), self.out], env=self.env,
                                stdin=subprocess.DEVNULL)

    def test_many_at_once_convert_once(self):
        self.assertEqual([p.wait(120) for p in [self.start() for _ in range(6)]], [0] * 6)
        self.assertEqual(self.asked(), ['scan'])
        self.assertEqual(self.outputs(), {'scan'})
        self.assertEqual(os.listdir(self.path('out', 'trying')), [])

    def test_ends_with_the_exit_code_and_tries_again(self):
        for _ in range(2):
            self.assertEqual([p.wait(120) for p in [self.start('missing.rxp') for _ in range(3)]], [3] * 3)
            self.assertEqual(self.asked(), ['missing'] * 3)
        self.assertEqual(os.listdir(self.path('out', 'trying')), [])

    def test_takes_up_what_came_beside_the_recording(self):
        for beside in (None, 'scan.rxp_001', 'scan.rxo', 'scan.pxp'):
            if beside:
                with open(self.path(beside), 'wb'):
                    pass
            for asked in (['scan'], []):
                self.assertEqual(self.start().wait(120), 0)
                self.assertEqual(self.asked(), asked, beside)


class Snakemake(Campaign):
    def test_runs_what_is_missing_and_no_more(self):
        if not shutil.which('snakemake'):
            self.skipTest('snakemake is not installed')
        self.check(lambda: run('snakemake', '--snakefile', os.path.join(self.example, 'Snakefile'), '--directory', self.folder,
                               '--cores', '2', '--keep-going', '--config', 'manifest=manifest.txt', 'out=out',
                               code=1, env=self.env))


class Slurm(Campaign):
    """A cluster of this one machine."""

    def start(self):
        for need in ('munged', 'slurmctld', 'slurmd', 'sbatch'):
            if not shutil.which(need, path=os.environ['PATH'] + ':/usr/sbin'):
                self.skipTest(need + ' is not installed')
        if os.getuid() != 0:
            self.skipTest('only the superuser starts a cluster')
        with open(self.path('key'), 'wb') as f:
            f.write(os.urandom(1024))
        os.chmod(self.path('key'), 0o400)
        for name in ('state', 'spool'):
            os.mkdir(self.path(name))
        name = socket.gethostname().split('.')[0]
        with open(self.path('slurm.conf'), 'w') as f:
            f.write('\n'.join([
                'ClusterName=one', 'SlurmctldHost=%s(127.0.0.1)' % name, 'SlurmUser=root', 'SlurmdUser=root',
                'AuthType=auth/munge', 'AuthInfo=socket=' + self.path('munge'), 'CredType=cred/munge',
                'ProctrackType=proctrack/pgid', 'TaskPlugin=task/none', 'JobAcctGatherType=jobacct_gather/none',
                'SelectType=select/cons_tres', 'SelectTypeParameters=CR_CPU', 'ReturnToService=2', 'MpiDefault=none',
                'SchedulerParameters=sched_interval=1,batch_sched_delay=0', 'MinJobAge=600',
                'SlurmctldPort=%d' % free_port(), 'SlurmdPort=%d' % free_port(),
                'StateSaveLocation=' + self.path('state'), 'SlurmdSpoolDir=' + self.path('spool'),
                'SlurmctldPidFile=' + self.path('ctld.pid'), 'SlurmdPidFile=' + self.path('slurmd.pid'),
                # More than there are, since a task is mostly start and end.
                'SlurmdParameters=config_overrides', 'NodeName=%s NodeAddr=127.0.0.1 CPUs=16 RealMemory=8000' % name,
                'PartitionName=all Nodes=ALL Default=YES MaxTime=10 State=UP', '']))
        self.env['SLURM_CONF'] = self.path('slurm.conf')
        self.serve('munged', '--foreground', '--force', '--socket', self.path('munge'), '--key-file', self.path('key'),
                   '--pid-file', self.path('munge.pid'), '--seed-file', self.path('seed'), '--log-file', self.path('munge.log'))
        self.wait_for_start('no munge socket', lambda: os.path.exists(self.path('munge')))
        self.serve('slurmctld', '-D')
        self.serve('slurmd', '-D')
        self.wait_for_start('no idle node', self.has_idle_node)

    def has_idle_node(self):
        return 'idle' in subprocess.run(['sinfo', '-h', '-o', '%T'], env=self.env, text=True, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE).stdout

    def serve(self, *args):
        with open(self.path(args[0] + '.out'), 'w') as log:
            p = subprocess.Popen(args, env=dict(self.env, PATH=self.env['PATH'] + ':/usr/sbin'), stdout=log, stderr=log,
                                 stdin=subprocess.DEVNULL)
        self.addCleanup(p.wait, 60)
        self.addCleanup(p.terminate)

    def wait(self, failure, reached, seconds=200, otherwise=None):
        until = time.monotonic() + seconds
        while not reached():
            if time.monotonic() > until:
                logs = [read(self.path(n))[-2000:] for n in os.listdir(self.folder) if n.endswith('.out')]
                (otherwise or self.fail)('\n'.join([failure] + logs))
            time.sleep(0.1)

    def wait_for_start(self, failure, reached):
        """A machine that keeps a cluster from starting, as some containers do, says nothing about the campaign."""
        self.wait(failure, reached, 60, self.skipTest)

    def submit(self):
        p = run('sbatch', '--array=1-40', '--cpus-per-task=1', 'convert.sbatch', self.path('manifest.txt'), self.out,
                env=self.env, cwd=self.example)
        job = re.search(r'(\d+)$', p.stdout.strip())[1]
        self.wait('tasks are left', lambda: not run('squeue', '-h', '-j', job, '-t', 'PD,R,CG', env=self.env).stdout)

    def test_array_runs_what_is_missing_and_no_more(self):
        self.start()
        self.check(self.submit)


def free_port():
    with socket.socket() as s:
        s.bind(('127.0.0.1', 0))
        return s.getsockname()[1]


if __name__ == '__main__':
    staged.main()
