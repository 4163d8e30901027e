"""What the cases of dkpfctl doctor share: each finding is provoked on the installed product and cured by following its
own words."""
import json
import re
import subprocess
import time

from product import ROOT, WINE, Failed, expect, wait_for

ROLE = ROOT / "build/win/tests/diskperf_role.exe"
PROVOKE = ROOT / "build/win/tests/bin/provoke.exe"
STAGE = ROOT / "build/stage"
PACKAGE = "out of the package of the version that is wanted: "
# Parts of cures that are for people, or only to be waited for.
SAID_ONLY = ("programs see it when they are started again", "services after a restart of the machine",
             "a running disk agent takes it up by itself", "it writes the file anew", "the module log may hold the cause",
             "the disk agent then takes the driver up by itself within 5 s", "remove the cause",
             "readers that failed may have to be started again")
CONFIGURATION = ("correct it", "correct the file", "correct the configuration file")
IF_IT_STAYS = "; if that does not help, "


def commands_of(cure):
    return re.split(r"; |, then |, |: (?=the disk agent|it writes|dkpfctl logs)", cure)


def words_of(command):
    return [word.strip('"') for word in re.findall(r'"[^"]*"|\S+', command)]


class Helper:
    """A program of the tests that runs beside the product until it is ended."""

    def __init__(self, product, program, *arguments):
        self.process = subprocess.Popen([WINE, str(program), *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True,
                                        # the library's own libraries are found over the path
                                        env=dict(product.environment, WINEPATH=product.must(
                                            'windows_path "$1"', product.home / "bin").strip()))
        self.line = self.process.stdout.readline().strip()

    def ask(self, command):
        self.tell(command)
        return self.process.stdout.readline().strip()

    def tell(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()

    def leave(self):
        """A reader gives its row back first."""
        self.ask("term")
        self.end()

    def end(self):
        self.process.stdin.close()
        self.process.wait(60)


class Case:
    def __init__(self, product):
        self.product = product
        self.bin = product.home / "bin"
        self.dll = self.bin / "tnwdiskperf.dll"
        self.config = product.home / "etc/cluster.xml"
        self.good = self.config.read_text()
        self.bad = self.good.replace("<writeinterval>1<", "<writeinterval>often<")
        self.holders = []  # programs that a cure ends

    # ---- Programs ----

    def windows(self, path):
        return self.product.must('windows_path "$1"', path).strip()

    def wine(self, *command):
        code, text = self.product.run([WINE, *command])
        expect(code == 0, f"{command}: exit code {code}\n{text}")

    def reader(self, dll=None):
        """A process that is attached as a consumer."""
        role = Helper(self.product, ROLE, self.windows(dll or self.dll))
        expect(role.line == "READY", f"the role says {role.line}")
        expect(role.ask("init 0") == "1 b0000000", "the role could not attach")
        return role

    def provoke(self, *arguments):
        helper = Helper(self.product, PROVOKE, *arguments)
        expect(helper.line == "done", f"provoke {arguments}: {helper.line}")
        return helper

    def wait_sample(self):
        wait_for("a sample", lambda: json.loads(self.product.ctl("status", "--json")[1])["sample"])

    # ---- Registry ----

    def add(self, key, value, kind, data):
        self.wine("reg", "add", key, "/v", value, "/t", kind, "/d", str(data), "/f")

    def delete(self, key, value):
        self.wine("reg", "delete", key, "/v", value, "/f")

    # ---- Doctor ----

    def findings(self):
        """{code: finding} of all that is not ok, with the exit code that goes with them."""
        code, text = self.product.ctl("doctor", "--json")
        report = json.loads(text)
        levels = {finding["level"] for finding in report["findings"]}
        worst = 1 if "wrong" in levels else 3 if "warning" in levels else 0
        expect(code == worst == report["exit_code"], f"exit code {code} for {levels}")
        expect(report["format"] == 1 and re.search(r"[+-]\d\d:\d\d$", report["time"]), text)
        found = {}
        for finding in report["findings"]:
            if finding["level"] != "ok":
                found.setdefault(finding["code"], finding)
        return found

    def find(self, code, level):
        found = wait_for(f"the finding {code}", lambda: self.findings().get(code))
        expect(found["level"] == level, f"{code} is a {found['level']}")
        return found

    def gone(self, *codes):
        wait_for(f"no {codes}", lambda: not set(codes) & set(self.findings()))

    def well(self, part):
        try:
            wait_for(f"nothing but well behind {part}", lambda: not self.findings())
        except Failed as failure:
            raise Failed(f"{failure}: {self.findings()}") from None

    def find_all(self, *wanted):
        """Findings, each (code, level), which one run of the doctor shows together; level None: any."""
        def look():
            found = self.findings()
            return found if all(code in found for code, _ in wanted) else None
        found = wait_for(f"the findings {wanted}", look)
        for code, level in wanted:
            expect(level in (None, found[code]["level"]), f"{code} is a {found[code]['level']}")
        return found

    def cure(self, code, level, *more):
        """Finds it, follows its words, and it is gone; so are those that came with it."""
        self.cure_all((code, level), more=more)

    def cure_all(self, *wanted, more=()):
        """The same for several at once; a command that several of them say is given once, and no second attempt made."""
        found = self.find_all(*wanted, *((code, None) for code in more))
        commands = {}
        for code, _ in wanted:
            commands.update(dict.fromkeys(commands_of(found[code]["cure"].split(IF_IT_STAYS)[0])))
        for command in commands:
            self.do(command)
        self.gone(*(code for code, _ in wanted), *more)

    def follow(self, cure):
        """Does what the words say, command by command."""
        for command in commands_of(cure):
            self.do(command)

    def do(self, command):
        command = command.removeprefix("look at it with ")
        if command.startswith(("dkpfctl ", PACKAGE)):
            if command == "dkpfctl config reload":
                time.sleep(1.5)  # more than an interval: several reloads in one may stop the collecting
            home = STAGE if command.startswith(PACKAGE) else self.product.home
            words = words_of(command.removeprefix(PACKAGE).removesuffix(" tells it"))
            code, text = self.product.run([WINE, str(home / "bin/dkpfctl.exe"), *words[1:]])
            expect(code == 0, f"{command}: exit code {code}\n{text}")
            expect(text.strip() or not command.endswith(" tells it"), f"{command}: it tells nothing")
        elif command == "free space on its volume":
            (self.product.perf / "filler").unlink()
        elif command == "restart the disk agent":
            self.wine("net", "stop", "dkpfagent")
            self.wine("net", "start", "dkpfagent")
        elif command == "start the disk agent":
            if self.product.state("dkpfagent") != "RUNNING":
                self.wine("net", "start", "dkpfagent")
        elif command in CONFIGURATION:
            self.config.write_text(self.good)
        elif command == "stop the disk agent and every reader":
            if self.product.state("dkpfagent") == "RUNNING":
                self.wine("net", "stop", "dkpfagent")
            while self.holders:
                self.holders.pop().end()
        elif command.startswith(("net ", "reg ", "taskkill ")):
            self.wine(*words_of(command))
        elif command.startswith(("del ", "mkdir ")):
            verb, path = command.split(" ", 1)
            local = path.strip('"').replace("\\", "/")[2:]  # every path here is one of Z:
            expect(str(self.product.home) in local, command)
            self.wine("cmd", "/c", verb, path.strip('"'))
        else:
            expect(command in SAID_ONLY, f"nobody knows how to do this: {command}")

    # ---- The case ----

    PARTS = ()  # routines of the class, in their order; each leaves a product that is well

    @classmethod
    def check(cls, product):
        product.install("disk 1 on async\nstep 1000\n")
        case = cls(product)
        product.start()
        case.well("the start")
        for part in cls.PARTS:
            start = time.monotonic()
            part(case)
            case.well(part.__name__)
            print(f"{part.__name__}: well after {time.monotonic() - start:.0f} s", flush=True)
        product.stop()
