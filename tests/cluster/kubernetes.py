# SPDX-License-Identifier: MIT
#
# Reads the Kubernetes job of docs/jobs.md: are its members YAML, and do those that depend on each
# other fit? kubernetes.py FILE.md
import re
import sys

import yaml

TRY_AGAIN = 75  # statuses of `corvane job run`
NOT_AGAIN = {1, 2, 3}


def check(what, holds):
    if not holds:
        sys.exit(f"kubernetes.py: not so: {what}")


text = open(sys.argv[1], encoding="utf-8").read()
frame = re.search(r"kubectl create job (\S+) [^\n]*\\\n +-- ([^>]*) >", text)
check("kubectl writes the frame", frame is not None)
name, command = frame[1], frame[2].split()
blocks = re.findall(r"^```yaml\n(.*?)^```$", text, re.M | re.S)
check("there are members of job, pod and container", len(blocks) == 3)
job, pod, container = (yaml.safe_load(block) for block in blocks)

check("pods are numbered", job["completionMode"] == "Indexed")
check("--of tells the number of pods",
      command[command.index("--of") + 1] == str(job["completions"]))
check("every pod may fail", job["maxFailedIndexes"] == job["completions"])
for rule in job["podFailurePolicy"]["rules"]:
    if "onExitCodes" in rule:
        codes = rule["onExitCodes"]
        check("the rule is for the container", codes["containerName"] == name)
        check("statuses that last fail the pod",
              (rule["action"], codes["operator"], set(codes["values"]))
              == ("FailIndex", "In", NOT_AGAIN))
        check("the status to try again is not among them", TRY_AGAIN not in codes["values"])
    else:
        check("a lost node is no failure",
              rule["action"] == "Ignore"
              and rule["onPodConditions"] == [{"type": "DisruptionTarget", "status": "True"}])
mounts = {mount["name"]: mount["mountPath"] for mount in container["volumeMounts"]}
check("every mount has its volume", set(mounts) == {volume["name"] for volume in pod["volumes"]})
check("the job lies in the shared volume", command[-1].startswith(mounts["shared"] + "/"))
check("requests are limits, so that no task is short of memory",
      container["resources"]["requests"] == container["resources"]["limits"])
