"""What every scenario is given: options, result, and the alternation of rounds."""

from .machine import Noise
from .programs import Program


class Bench:
    def __init__(self, options, result, patience):
        """patience: None when nothing is to be waited for."""
        self.options = options
        self.result = result
        self._patience = patience

    @property
    def quick(self):
        return self.options.quick

    def choose(self, full, quick):
        return quick if self.quick else full

    def wait(self):
        """Waits for a quiet machine, while patience lasts."""
        if self._patience is not None:
            self._patience.wait()

    def rounds(self, *cases):
        """
        Runs cases alternately, each `rounds` times. A case is a name and a function that gives one round's figures;
        every other round runs them in the opposite order. Each run waits for a quiet machine first, while patience
        lasts, and what other programs took meanwhile stands beside it.
        """
        for number in range(self.options.rounds):
            for place, (name, measure) in enumerate(cases if number % 2 == 0 else reversed(cases), number * len(cases) + 1):
                self.wait()
                noise = Noise(Program.live_pids)
                figures = measure()
                self.result.add(name, f"{place}/{self.options.rounds * len(cases)}", **figures, **noise.end())
