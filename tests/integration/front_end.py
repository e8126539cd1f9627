"""A front end of docs/protocol.md alone: front_end.py ENGINE [STATE] installs with the engine, prints what it sees and
exits with the final state. In the state named it asks the engine to cancel."""
import os, plistlib, socket, struct, subprocess, sys, time

FOLDER = "/var/run/com.corvane.installer/com.corvane.installer."


def profile(constant):
    h = 14695981039346656037
    with open("/proc/sys/kernel/random/boot_id", "rb") as identity:
        for byte in identity.read(36):
            h = ((h ^ byte) * 1099511628211) % 2**64
    k = (1072915200 + ((h ^ (h >> 32)) & (2**29 - 1))) & 255
    return bytes(byte ^ k for byte in bytes.fromhex(constant))


SHOWN = profile("9d31cd1ac01e37a81216e024a926ca38")
EXPECTED = profile("7250b0a719a1db5e0955a873f2e1ecd0")


class Watcher:
    def __init__(self, engine):
        path = FOLDER + str(engine.pid)
        while not os.path.exists(path) and engine.poll() is None:
            time.sleep(0.01)
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(path)
        peer = self.socket.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, struct.calcsize("3i"))
        assert struct.unpack("3i", peer)[1] == 0, "the service is not root's"
        self.stream, self.number, self.news = self.socket.makefile("rb"), 0, 0

    def send(self, kind, **members):
        content = plistlib.dumps({"Kind": kind, "Authentication": SHOWN, **members}, fmt=plistlib.FMT_BINARY)
        self.socket.sendall(struct.pack(">I", len(content)) + content)

    def receive(self):
        (length,) = struct.unpack(">I", self.stream.read(4))
        message = plistlib.loads(self.stream.read(length), fmt=plistlib.FMT_BINARY)
        assert message["Authentication"] == EXPECTED, "the answer is not authentic"
        assert message["Kind"] != "exception", message
        self.news += message["Kind"] == "notification" and message["Name"] == "com.corvane.installer.update"
        return message

    def call(self, selector):
        self.number += 1
        self.send("call", Number=self.number, Selector=selector)
        while (answer := self.receive())["Kind"] != "reply" or answer["Number"] != self.number:
            pass
        return answer["Result"]


engine = subprocess.Popen([sys.argv[1], "--ui", "--install"])
watcher = Watcher(engine)
watcher.send("observe")
while True:
    watcher.news = 0
    state = watcher.call("getCurrentState")
    print("state", state, "progress", watcher.call("getProgress"), flush=True)
    if state <= 10 or state == 21:
        break
    if [str(state)] == sys.argv[2:]:
        watcher.send("one-way", Selector="cancelInstallation")
        print("cancelling", flush=True)
    while watcher.news == 0:
        watcher.receive()
watcher.send("one-way", Selector="shutdownService")
assert engine.wait() == state, "the exit code is another state"
sys.exit(state)
