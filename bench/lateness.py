"""How much of a machine's time others take: what short sleeps have been late."""
import threading
import time


class Lateness(threading.Thread):
    """Measures from when it is made to the end of the program."""

    THREADS_IN_TURN = 4  # of publisher and server, which wait for each other

    def __init__(self):
        super().__init__(daemon=True)
        self.samples = []
        self.start()

    def run(self):
        while True:
            before = time.monotonic()
            time.sleep(0.01)
            now = time.monotonic()
            self.samples.append((now, now - before - 0.01))

    def between(self, begin, end):
        """The seconds that a bound in time has to grant for what was lost to others."""
        return self.THREADS_IN_TURN * sum(late for at, late in self.samples if begin <= at <= end)
