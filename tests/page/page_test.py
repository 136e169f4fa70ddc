#!/usr/bin/env python3
"""The page of `harrowmossctl view` in a headless Chromium: no console message, marks at their places, keys and
mouse, light and dark, 1280 and 360 pixels.

usage: page_test.py HARROWMOSSCTL [--screenshot FILE]
"""
import base64
import json
import os
import subprocess
import sys
import tempfile
import time
from datetime import datetime, timedelta
from pathlib import Path

START = datetime(2026, 11, 18, 10, 0, 0)
EVIL = '</script><script>document.title="taken"</script><img src=x onerror=document.title="taken">'
LIMIT_S = 60


class Browser:
    """Chromium's protocol over two pipes: messages of a JSON text and a NUL."""

    def __init__(self, profile):
        to_browser, self.out = os.pipe()
        self.into, from_browser = os.pipe()

        def wire():  # it reads descriptor 3 and writes 4
            first, second = os.dup(to_browser), os.dup(from_browser)
            os.dup2(first, 3)
            os.dup2(second, 4)

        self.process = subprocess.Popen(
            ['chromium', '--headless=new', '--no-sandbox', '--disable-gpu', '--remote-debugging-pipe',
             '--no-first-run', '--disable-background-networking', f'--user-data-dir={profile}', 'about:blank'],
            preexec_fn=wire, close_fds=False, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self.number, self.buffer, self.events = 0, b'', []
        target = self.call('Target.createTarget', {'url': 'about:blank'})['targetId']
        self.session = self.call('Target.attachToTarget', {'targetId': target, 'flatten': True})['sessionId']
        for domain in ('Page', 'Runtime', 'Log'):
            self.call(domain + '.enable')

    def read(self):
        while b'\0' not in self.buffer:
            part = os.read(self.into, 1 << 16)
            if not part:
                sys.exit('page: the browser has ended')
            self.buffer += part
        text, self.buffer = self.buffer.split(b'\0', 1)
        return json.loads(text)

    def call(self, method, parameters=None):
        self.number += 1
        request = {'id': self.number, 'method': method, 'params': parameters or {}}
        if hasattr(self, 'session'):
            request['sessionId'] = self.session
        os.write(self.out, json.dumps(request).encode() + b'\0')
        while True:
            message = self.read()
            if message.get('id') == self.number:
                if 'error' in message:
                    sys.exit(f'page: {method}: {message["error"]}')
                return message['result']
            self.events.append(message)

    def run(self, script):
        result = self.call('Runtime.evaluate', {'expression': script, 'returnByValue': True})
        if 'exceptionDetails' in result:
            sys.exit(f'page: {script}: {result["exceptionDetails"]}')
        return result['result'].get('value')

    def open(self, path, width, dark):
        self.call('Emulation.setDeviceMetricsOverride',
                  {'width': width, 'height': 900, 'deviceScaleFactor': 1, 'mobile': width < 500})
        self.call('Emulation.setEmulatedMedia',
                  {'features': [{'name': 'prefers-color-scheme', 'value': 'dark' if dark else 'light'}]})
        self.call('Page.navigate', {'url': path.as_uri()})
        deadline = time.monotonic() + LIMIT_S
        while self.run('document.readyState + document.querySelectorAll(".lane").length')[:8] != 'complete':
            check(time.monotonic() < deadline, 'the page does not load')

    def key(self, name, modifiers=0):
        text = {'text': name} if len(name) == 1 else {'text': '\r'} if name == 'Enter' else {}
        for kind in ('keyDown', 'keyUp'):
            self.call('Input.dispatchKeyEvent', {'type': kind, 'key': name, 'modifiers': modifiers,
                                                 **(text if kind == 'keyDown' else {})})

    def drag(self, x, to, y):
        for kind, at in (('mousePressed', x), ('mouseMoved', (x + to) / 2), ('mouseMoved', to), ('mouseReleased', to)):
            self.call('Input.dispatchMouseEvent', {'type': kind, 'x': at, 'y': y, 'button': 'left', 'clickCount': 1})

    def complaints(self):
        return [event for event in self.events if event.get('method') in
                ('Runtime.consoleAPICalled', 'Runtime.exceptionThrown', 'Log.entryAdded')]

    def close(self):
        self.process.terminate()
        self.process.wait()


def check(condition, what):
    if not condition:
        sys.exit(f'page: FAILED: {what}')


def line(second, level, tag, text, pid=113):
    at = START + timedelta(seconds=second)
    return f'{at:%m-%d %H:%M:%S.%f}  {pid:4}  {pid:4} {level} {tag:8}: {text}\n'


def write(run, path, text):
    file = run / path
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(text)
    written = (START + timedelta(hours=3)).timestamp()
    os.utime(file, (written, written))


def make_run(directory, odd=EVIL):
    """An hour with a crash at 20 minutes, an ANR at 30, and radio replaced from 40 to 45 minutes."""
    run = directory / f'7#{START:%m-%d_%H-%M-%S}'
    main = '--------- beginning of main\n'
    for second in range(0, 3600, 2):
        busy = 4 if 1150 < second < 1250 else 1
        main += line(second, 'I', 'Chatty', 'something happens') * busy
        main += line(second, 'W', 'Slow', 'later than wanted') if second % 90 == 0 else ''
        main += line(second, 'E', 'Broken', 'cannot read ' + odd) if second % 700 == 0 else ''
    write(run, 'mobile/Q-main.txt', main)
    write(run, 'mobile/Q-system.txt', '--------- beginning of system\n' +
          ''.join(line(second, 'I', 'Quiet', 'tick') for second in range(0, 3600, 60)) +
          line(3540.5, 'I', 'Quiet', 'last'))
    write(run, 'mobile/Q-crash.txt', '--------- beginning of crash\n' +
          line(1200, 'E', 'AndroidRuntime', 'FATAL EXCEPTION: main ' + odd, 4711) +
          line(1200, 'E', 'AndroidRuntime', 'java.lang.IllegalStateException: no view', 4711))
    radio = '--------- beginning of radio\n'
    write(run, 'mobile/Q-radio.txt', radio + ''.join(line(s, 'D', 'RILJ', '> SIGNAL') for s in range(0, 2401, 10)))
    write(run, 'mobile/Q-radio_1.txt', radio + ''.join(line(s, 'D', 'RILJ', '> SIGNAL') for s in range(2700, 3600, 10)))
    main_file = run / 'mobile/Q-main.txt'
    lines = main_file.read_text()
    at = lines.index(line(1800, 'I', 'Chatty', 'something happens'))
    write(run, 'mobile/Q-main.txt', lines[:at] + line(1800, 'E', 'ActivityManager', 'ANR in com.demo.app') + lines[at:])
    write(run, 'touch/event.txt', ''.join(f'{START + timedelta(seconds=s):%Y-%m-%d %H:%M:%S}:5000  EV_KEY\n'
                                          for s in range(600, 1200, 7)))
    write(run, 'system.prop', '[persist.sys.zklog.type]: [17]\n[persist.sys.zelka.log.size]: [20]\n'
                              '[ro.build.display.id]: [DEMO V1.02]\n')
    return run


def check_page(browser, page):
    for width, dark in ((1280, False), (360, True), (1280, True), (360, False)):
        browser.open(page, width, dark)
        check(browser.run('document.title') == f'run 7#{START:%m-%d_%H-%M-%S}', 'the title, so markup was run')
        wide = browser.run('document.documentElement.scrollWidth')
        check(wide <= width, f'{wide} pixels wide at {width}')
        back = browser.run('getComputedStyle(document.body).backgroundColor')
        check((back == 'rgb(255, 255, 255)') != dark, f'{back} when dark is {dark}')
        # Where each mark is on the time axis, in seconds from the start.
        marks = browser.run('''[...document.querySelectorAll('.mark')].map(mark => [mark.dataset.kind,
            (shown[0] + parseFloat(mark.style.left) / 100 * (shown[1] - shown[0])) / 1e6])''')
        began = (START - datetime(1970, 1, 1)).total_seconds()
        places = {kind: at - began for kind, at in marks}
        for kind, second in (('crash', 1200), ('anr', 1800), ('hole', 2400)):
            check(abs(places.get(kind, -1) - second) < 1, f'{kind} at {places.get(kind)}, not {second}')
        drawn = browser.run('''lanes.map(one => [...one.canvas.getContext('2d').getImageData(0, 0, one.canvas.width,
            one.canvas.height).data].some(value => value !== 0))''')
        check(len(drawn) == 5 and all(drawn), f'lanes drawn: {drawn}')
        check(browser.run('document.querySelectorAll("pre").length') == 1, 'the crash is not shown')
    # Keys: select, zoom to it, back.
    browser.open(page, 1280, False)
    browser.run('document.getElementById("timeline").focus()')
    browser.key('ArrowRight', modifiers=8)
    command = browser.run('document.getElementById("command").value')
    check(command.startswith("harrowmossctl log '7#") and "--since '2026-11-18 10:" in command, command)
    browser.key('Enter')
    part = browser.run('(shown[1] - shown[0]) / (whole[1] - whole[0])')
    check(0.03 < part < 0.07, f'zoomed to {part}')
    browser.key('Escape')
    check(browser.run('shown[0] === whole[0] && shown[1] === whole[1] && !picked'), 'Escape does not show all')
    # The mouse: a drag over the middle half.
    box = browser.run('''(box => [box.left, box.width, box.top])(document.querySelector('canvas').getBoundingClientRect())''')
    browser.drag(box[0] + box[1] / 4, box[0] + 3 * box[1] / 4, box[2] + 10)
    part = browser.run('(picked[1] - picked[0]) / (whole[1] - whole[0])')
    check(0.48 < part < 0.52, f'dragged {part}')
    return browser.run('document.getElementById("command").value')


def main():
    if len(sys.argv) not in (2, 4) or (len(sys.argv) == 4 and sys.argv[2] != '--screenshot'):
        sys.exit(__doc__)
    client = Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory() as made:
        directory = Path(made)
        run = make_run(directory)
        page = directory / 'run.html'
        subprocess.run([client, 'view', run.name, '-o', page], cwd=directory, check=True)
        browser = Browser(directory / 'profile')
        try:
            command = check_page(browser, page)
            if len(sys.argv) == 4:
                make_run(directory, odd='')
                subprocess.run([client, 'view', run.name, '-o', page], cwd=directory, check=True)
                browser.open(page, 1280, False)
                shot = browser.call('Page.captureScreenshot', {'format': 'png'})
                Path(sys.argv[3]).write_bytes(base64.b64decode(shot['data']))
            complaints = browser.complaints()
        finally:
            browser.close()
        check(not complaints, f'the console: {complaints[:3]}')
        # The page's command is accepted by the client, and lists the selection.
        words = command.replace('harrowmossctl', str(client), 1)
        listed = subprocess.run(['sh', '-c', words], cwd=directory, check=True, stdout=subprocess.PIPE, text=True).stdout
        check('FATAL EXCEPTION' in listed and 'Quiet   : last' not in listed, f'{command} lists something else')
    print('page: as it should be, at 1280 and 360 pixels, light and dark')


if __name__ == '__main__':
    main()
