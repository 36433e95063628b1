#!/usr/bin/env python3
"""Runs the README's commands of the agent as they stand there."""
import os
import pathlib
import re
import subprocess

from agent import PROGRAM, AgentCase, describe, fill, main

README = pathlib.Path(__file__).parents[2] / "README.md"


class Readme(AgentCase):
    def test_commands_run_as_written(self):
        script = re.search(r"```sh\n(.*?)```", README.read_text(), re.DOTALL).group(1)
        self.assertIn("cloudbackup backup ~/documents", script)
        documents = self.place / "documents"
        documents.mkdir()
        fill(documents, 1, files=20)
        script = script.replace("/tmp/", f"{self.place}/")
        environment = dict(self.environment, HOME=str(self.place), PATH=f"{os.path.dirname(PROGRAM)}:{os.environ['PATH']}")
        for name in ("XDG_STATE_HOME", "CLOUDBACKUP_STATE_DIR"):
            environment.pop(name, None)
        subprocess.run(["bash", "-euc", script], env=environment, check=True)
        self.assertEqual(describe(f"{self.place}/restored{documents}"), describe(documents))


if __name__ == "__main__":
    main()
