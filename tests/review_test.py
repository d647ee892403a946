#!/usr/bin/python3
"""The documents for code review services, editors and pipelines: review_test.py EXTPROP. Validates
every document of the samples by its schema, and runs the pipelines of docs/ci.md."""

import functools
import glob
import html.parser
import json
import os
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import unittest

import jsonschema
import yaml

SOURCE = os.path.dirname(os.path.dirname(os.path.realpath(__file__)))
SCHEMAS = os.path.join(SOURCE, 'docs/schema/')
SAMPLES = os.path.join(SOURCE, 'samples/')
EXTPROP = os.path.realpath(sys.argv.pop(1))


def strict(schema):
    """Returns the schema with unknown fields forbidden, which readers must accept but this test."""
    if isinstance(schema, list):
        return [strict(each) for each in schema]
    if not isinstance(schema, dict):
        return schema
    schema = {key: strict(value) for key, value in schema.items()}
    if isinstance(schema.get('properties'), dict) and schema.get('type') is not None:
        schema.setdefault('additionalProperties', False)
    return schema


@functools.cache
def validator(name):
    def load(file_name):
        with open(SCHEMAS + file_name) as file:
            return strict(json.load(file))

    resolver = jsonschema.RefResolver('', {}, {'common.json': load('common.json')})
    return jsonschema.Draft7Validator(load(name + '.json'), resolver=resolver)


class ReviewTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # A small stack, on which an endless recursion crashes soon.
        _, most = resource.getrlimit(resource.RLIMIT_STACK)
        resource.setrlimit(resource.RLIMIT_STACK, (512 * 1024, most))

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.work = os.path.realpath(directory.name)

    def path(self, name):
        return os.path.join(self.work, name)

    def write(self, name, content):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), 'w') as file:
            file.write(content)
        return self.path(name)

    def run_tool(self, *words, status=0):
        run = subprocess.run([EXTPROP, *words], capture_output=True, text=True, errors='replace')
        self.assertEqual(run.returncode, status, f'{words}\n{run.stdout}{run.stderr}')
        return run.stdout if status != 2 else run.stderr

    def hold(self, document, name):
        validator(name).validate(document)

    def read(self, name):
        with open(self.path(name)) as file:
            return file.read()

    def test_documents(self):
        for sample in sorted(os.listdir(SAMPLES)):
            device = SAMPLES + sample
            faulty = sample == 'faulty'  # some of its variants do not boot
            lint = [device, '--json', '--category', 'x', '--sarif', self.path('sarif'),
                    '--code-quality', self.path('quality')]
            with self.subTest(sample):
                documents = {'lint': self.run_tool('lint', *lint, status=int(faulty))}
                self.run_tool('lint', device, '--write-baseline', self.path('baseline'))
                for name in ['sarif', 'baseline']:
                    documents[name] = self.read(name)
                documents['code-quality'] = self.read('quality')
                steps = ['early', 'persist', 'sim', 'reboot', 'cota', 'duskrider', 'media:/my_media',
                         'cota-service:check_mount', 'sim:triggerLogoCopyFromCompany']
                documents['boot'] = self.run_tool('boot', device, '--json', *steps)
                edit = ['--b', '--edit', '/odm/build.prop:ro.sample.new=1']
                documents['explain'] = self.run_tool('explain', device, '--json', '--all')
                documents['diff'] = self.run_tool('diff', device, '--json', *edit, status=1)
                documents['matrix-list'] = self.run_tool('matrix', device, '--list', '--json')
                for name, document in documents.items():
                    self.hold(json.loads(document), name)
                lines = self.run_tool('matrix', device, '--json', '--shard', '1/1', status=3 * faulty)
                for line in lines.splitlines():
                    self.hold(json.loads(line), 'matrix-line')
        boot = ['boot', SAMPLES + 'faulty', '--json', '--region-key', 'west']
        crash = json.loads(self.run_tool(*boot, status=3))
        for step in crash['steps']:
            del step['events'][200:]  # the rest is of an endless recursion
        self.hold(crash, 'boot')
        difference = self.run_tool('matrix', SAMPLES + 'carriers', SAMPLES + 'sim-keys', '--json',
                                   status=1)
        self.hold(json.loads(difference), 'matrix-diff')
        # A phone of a region that the device has not.
        phone = self.write('phone', '[ro.sample.model]: [x]\n[ro.sample.volte]: [1]\n'
                                    '[ro.tesvo.pipeline.region]: [XX]\n')
        self.hold(json.loads(self.run_tool('compare', SAMPLES + 'carriers', phone, '--json', status=1)),
                  'compare')
        wrong = self.write('wrong.yaml', 'expectations:\n- properties: {ro.sample.model: x}\n')
        self.hold(json.loads(self.run_tool('check', SAMPLES + 'carriers', wrong, '--json', status=1)),
                  'check')

    def test_expectations(self):
        recorded = self.path('recorded.yaml')
        self.run_tool('check', SAMPLES + 'carriers', recorded, '--record')
        self.assertRegex(self.read(recorded), '^# yaml-language-server: .schema=.*/expectations.json\n')
        for file in glob.glob(SAMPLES + '*/*.yaml') + [recorded]:
            self.hold(yaml.safe_load(self.read(file)), 'expectations')
        for wrong in ['[]', 'expectations: []', 'expectations: [{}]', 'expectation: []',
                      'expectations: [{properties: {a: []}}]',
                      'expectations: [{properties: {a: {equal: 1}}}]',
                      'expectations: [{properties: {a: {from: odm}}}]',
                      'expectations: [{properties: {a: {}}}]',
                      'expectations: [{variants: {regon: EU}, properties: {a: 1}}]',
                      'expectations: [{variants: [], properties: {a: 1}}]',
                      'expectations: [{complete: maybe, properties: {a: 1}}]']:
            with self.subTest(wrong):
                file = self.write('wrong.yaml', wrong)
                error = self.run_tool('check', SAMPLES + 'carriers', file, status=2)
                self.assertIn(file + ':1:', error)
                with self.assertRaises(jsonschema.ValidationError):
                    self.hold(yaml.safe_load(wrong), 'expectations')

    def test_junit(self):
        device = SAMPLES + 'carriers'
        same = '- {properties: {ro.sample.model: Sample Three}}\n'
        bad = '- {name: "<&\\"\\u0001\\uffff", properties: {ro.sample.model: "]]>"}}\n'
        self.write('repo/.git', '')
        file = self.write('repo/a/e.yaml', 'expectations:\n' + bad + same + same)
        names = []
        for number, directory in enumerate([self.work, self.path('repo/a')]):
            report = self.path(f'report{number}')
            os.chdir(directory)
            self.run_tool('check', device, os.path.relpath(file), '--junit', report, status=1)
            subprocess.run(['xmllint', '--noout', '--schema', SCHEMAS + 'junit.xsd', report], check=True,
                           stderr=subprocess.DEVNULL)
            names.append(re.findall(r' (?:name|classname|file)="[^"]*"', self.read(report)))
        self.assertEqual(names[0], names[1])
        self.assertIn(' classname="a/e.yaml: expectation 3"', names[0])
        self.assertIn(' file="a/e.yaml"', names[0])

    def test_markdown(self):
        """Texts of the device are unchanged in a summary, as code, and it is never too long."""
        hostile = ['</code><b>x', '@team', 'https://e.example/', '[a](b)', '`x` **b** | y', '&lt;', '#1']
        before = self.write('before/odm/build.prop', 'ro.x=1\n')
        lines = [f'ro.{number}={value}' for number, value in enumerate(hostile)]
        self.write('after/odm/build.prop', '\n'.join(lines))

        def compare(path='summary.md'):
            self.run_tool('matrix', self.path('before'), self.path('after'), '--markdown',
                          self.path(path), status=1)
            text = self.read(path)
            self.assertLessEqual(len(text.encode()), 65535)
            self.assertNotIn('\n\n', text)
            page = Page()
            page.feed(text)
            self.assertEqual(page.open, [])
            return text, page

        text, page = compare()
        self.assertLessEqual(set(hostile), set(page.code))
        self.assertNotIn('@', ''.join(page.other))
        self.assertIn('<h3>8 properties differ in 1 of 1 variant</h3>', text)
        self.write('after/odm/build.prop', '\n'.join(f'ro.{number}=' + '&' * 2000 for number in range(99)))
        text, page = compare()
        rows = text.count('<tr>') - 1
        self.assertIn(f'<p>{100 - rows} more rows are left out', text)

        wrong = self.write('e.yaml', 'expectations:\n- name: "@team"\n  variants: {sim-first: "*"}\n'
                                     '  properties: {ro.sample.model: "<b>"}\n')
        self.run_tool('check', SAMPLES + 'carriers', wrong, '--markdown', self.path('c.md'), status=1)
        page = Page()
        page.feed(self.read('c.md'))
        self.assertIn(f'@team ({wrong}:2)', page.code)
        self.assertIn('all 3 variants', page.code)
        self.assertNotIn('@', ''.join(page.other))
        self.assertEqual(before, self.path('before/odm/build.prop'))

    def test_baselines(self):
        lines = 'ro.x 1\nimport /none\n'
        device = os.path.dirname(os.path.dirname(self.write('device/odm/build.prop', lines)))
        baseline = self.path('baseline.json')
        self.run_tool('lint', device, status=1)
        self.assertEqual(self.run_tool('lint', device, '--write-baseline', baseline),
                         f'2 known findings in {baseline}\n')
        self.write('device/odm/build.prop', '# new\n\n' + lines)
        self.assertEqual(self.run_tool('lint', device, '--baseline', baseline),
                         f'2 known findings in {baseline}\n')
        self.write('device/odm/build.prop', 'ro.x 1\nro.y 1\n')
        both = ['lint', device, '--baseline', baseline, '--write-baseline', baseline]
        printed = self.run_tool(*both, status=1)
        self.assertIn('/odm/build.prop:2: error: there is no', printed)
        self.assertIn(f"{baseline}:3: note: /odm/build.prop has no missing-import in 'import /none'", printed)
        # The baseline has shrunk, and has not grown.
        self.assertNotIn('note:', self.run_tool(*both, status=1))
        self.assertEqual(len(json.loads(self.read(baseline))['findings']), 1)

    def test_pipelines(self):
        """Runs the jobs of docs/ci.md as the services do, from a repository's root: first with the
        device as it was recorded, then with a new fault, after which all reports must be there."""
        with open(SOURCE + '/docs/ci.md') as file:
            blocks = re.findall(r'^```(sh|yaml)\n(.*?)^```', file.read(), re.S | re.M)
        self.assertEqual([kind for kind, _ in blocks], ['sh', 'yaml', 'yaml'])
        root = self.path('repository')
        shutil.copytree(SAMPLES + 'carriers', root + '/device', symlinks=True)
        environment = {'HOME': self.work, 'PATH': os.path.dirname(EXTPROP) + ':' + os.environ['PATH'],
                       'GITHUB_BASE_REF': 'main', 'GITHUB_STEP_SUMMARY': self.path('summary.md'),
                       'CI_NODE_TOTAL': '4', 'CI_MERGE_REQUEST_DIFF_BASE_SHA': 'origin/main'}

        def run(command, **more):
            if re.match('apt-get|git fetch', command):
                return 0
            return subprocess.run(['bash', '-e', '-o', 'pipefail', '-c', command], cwd=root,
                                  env={**environment, **more}, stdout=subprocess.DEVNULL).returncode

        def run_job(job):
            """Returns the statuses of the tool's commands, and the reports for the service."""
            statuses, reports = [], []
            run('rm -rf ../before && git worktree prune')
            for step in job.get('steps') or [{'run': command} for command in job['script']]:
                if any(statuses) and step.get('if') != 'success() || failure()':
                    continue
                for part in range(1, job.get('parallel', 1) + 1):
                    status = run(step.get('run', 'true'), CI_NODE_INDEX=str(part))
                    statuses += [status] if 'extprop ' in step.get('run', '') else []
                with_step = step.get('with', {})
                reports += [with_step[key] for key in ['path', 'sarif_file'] if key in with_step]
            artifacts = job.get('artifacts', {})
            if not any(statuses) or artifacts.get('when') == 'always':
                reports += [*artifacts.get('reports', {}).values(), *artifacts.get('paths', [])]
            for file in reports:
                self.assertTrue(glob.glob(os.path.join(root, file)), file)
            return statuses, reports

        self.assertEqual(run(blocks[0][1]), 0)
        self.assertEqual(run('git init -q -b main . && git add -A && '
                             'git -c user.name=x -c user.email=x commit -qm x && '
                             'git update-ref refs/remotes/origin/main HEAD'), 0)
        for fault, differences in [('', 'No property differs'), ('ro.new 1\nro.new=1\n', '1 property')]:
            with open(root + '/device/mnt/vendor/my_product/build.prop', 'a') as file:
                file.write(fault)
            status = int(bool(fault))
            reports = []
            for expected, (_, block) in zip([[[status, status, 0]],
                                             [[status], [status], [0], [0] * 4, [0]]], blocks[1:]):
                jobs = yaml.safe_load(block)
                jobs = [job for job in jobs.get('jobs', jobs).values()
                        if 'script' in job or 'steps' in job]
                self.assertEqual(run('git clean -fdq'), 0)
                results = [run_job(job) for job in jobs]
                self.assertEqual([statuses for statuses, _ in results], expected)
                reports.append(sum((names for _, names in results), []))
                if 'findings.sarif' not in reports[-1]:
                    continue
                findings = json.loads(self.read('repository/findings.sarif'))
                self.assertEqual(list(findings['runs'][0]['originalUriBaseIds']), ['%SRCROOT%'])
                self.assertIn(f'<h3>{differences}', self.read('summary.md'))
            self.assertEqual(reports, [['findings.sarif', 'report.xml'],
                                       ['quality.json', 'report.xml', 'changes.md', 'part-*.json',
                                        'matrix.html']])


class Page(html.parser.HTMLParser):
    """The texts of a summary, apart in code and others."""

    def __init__(self):
        super().__init__()
        self.open, self.code, self.other = [], [], []

    def handle_starttag(self, tag, attributes):
        assert tag in 'h3 p table tr th td code details summary em'.split() and not attributes, tag
        self.open.append(tag)
        if tag == 'code':
            self.code.append('')

    def handle_endtag(self, tag):
        assert self.open.pop() == tag

    def handle_data(self, data):
        if 'code' in self.open:
            self.code[-1] += data
        else:
            self.other.append(data)


if __name__ == '__main__':
    unittest.main()
