"""The examples of the device kit do what they stand for: a bench phone boots with them in place of its own
stand-ins, and one run with every type that needs them is started and stopped.

usage: examples_test.py PHONE_LAUNCHER TRACE_SINK
"""

import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "device/examples"
PHONE, TRACE_SINK = sys.argv[1:3] if len(sys.argv) > 2 else ("", "")

# In the phone. What a vendor service wrote is laid out as the product's would; a wait without an end is
# ended by the phone's own time-out.
SCRIPT = r"""
exec 2>&1
waited() { until eval "$1"; do sleep 0.1; done; }
harrowmossctl start modem,net,power,wifi,systrace,mobile || exit 1
run=$(harrowmossctl log-dir)
waited '[ -s "/data/vendor/zelkalog/common/$run/modem/modem_log.txt" ]'
waited '[ -s "/data/misc/zelkalog/$run/fg/fg_log.txt" ]'
waited '[ -s "/data/misc/zelkalog/$run/mobile/fd/fd_log.txt" ]'
waited 'logcat -d -s harrowmoss_trace_sink | grep -q "command 0"'
mkdir -p /data/vendor/wifi/wlan_logs && echo firmware > /data/vendor/wifi/wlan_logs/cnss_fw_logs_0.txt
mkdir -p /data/vendor/zelkalog/minidump && echo dump > /data/vendor/zelkalog/minidump/modem.elf
setprop vendor.harrowmossd.minidump.status 1
harrowmossctl stop || exit 1
harrowmossctl feedback --select power /sdcard/report || exit 1
echo "stopped modem logger: $(getprop init.svc.harrowmoss_modem_logger)"
logcat -d -s harrowmoss_trace_sink | grep -o "command .*"
for file in modem/modem_log.txt fg/fg_log.txt power/batterystats_start.txt power/batterystats_stop.txt \
    wlan_logs/cnss_fw_logs_0.txt mobile/fd/fd_log.txt; do
  [ -s "/sdcard/zelkalog/$run/$file" ] && echo "run has $file"
done
[ -s /sdcard/zelkalog/minidump/modem.elf ] && echo "minidump is there"
[ -s /sdcard/report/power/batterystats.txt ] && echo "power feedback is there"
grep -h "wait prop" /data/misc/zelkalog/.logger/harrowmossd.txt | grep -o "wait prop.*"
vesk -d -b main -t 1 > /dev/null && echo "vesk works"
"""

EXPECTED = """stopped modem logger: stopped
command 0
command 2
run has modem/modem_log.txt
run has fg/fg_log.txt
run has power/batterystats_start.txt
run has power/batterystats_stop.txt
run has wlan_logs/cnss_fw_logs_0.txt
run has mobile/fd/fd_log.txt
minidump is there
power feedback is there
wait prop sys.zelka.harrowmossd.action.mv_minidump_logs_done done
wait prop sys.zelka.harrowmossd.action.mv_vendor_common_logs.done done
wait prop sys.zelka.harrowmossd.action.mv_vendor_wifi_logs.done done
vesk works"""


class ExamplesTest(unittest.TestCase):

    def test_one_run_with_all_of_them(self):
        with tempfile.TemporaryDirectory() as scratch:
            services = pathlib.Path(scratch) / "services.rc"
            services.write_text("".join(rc.read_text() for rc in sorted(EXAMPLES.glob("*.rc"))))
            option = pathlib.Path(scratch) / "MOBILE.cfg"
            option.write_text("watch_fd\n")
            script = pathlib.Path(scratch) / "script.sh"
            script.write_text(SCRIPT)
            files = {services: "/system/etc/init/bench_services.rc",
                     script: "/data/local/tmp/script.sh",
                     option: "/sdcard/Android/data/cn.zelka.harrowmoss/files/.harrowmoss/MOBILE.cfg",
                     EXAMPLES / "bin/vesk": "/system/bin/vesk",
                     EXAMPLES / "bin/harrowmoss_vendor_logs.sh": "/system_ext/bin/harrowmoss_vendor_logs.sh",
                     EXAMPLES / "bin/harrowmoss_modem_logger.sh": "/vendor/bin/harrowmoss_modem_logger.sh",
                     TRACE_SINK: "/system_ext/bin/harrowmoss_trace_sink",
                     shutil.which("mksh"): "/vendor/bin/sh"}
            files.update({path: f"/system/etc/{path.name}" for path in EXAMPLES.glob("etc/*.sh")})
            arguments = [PHONE, "--timeout", "120"]
            for host, inside in files.items():
                arguments += ["--file", f"{host}={inside}"]
            result = subprocess.run([*arguments, "--", "sh", "/data/local/tmp/script.sh"], text=True,
                                    capture_output=True, check=False)
        output = result.stdout + result.stderr
        self.assertEqual(result.returncode, 0, output)
        at = 0
        for line in EXPECTED.splitlines():  # in this order, with progress lines between
            found = output.find(line, at)
            self.assertGreaterEqual(found, 0, f"missing: {line}\n{output}")
            at = found + len(line)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
