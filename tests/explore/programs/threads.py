# Threads of an interpreter, whose lock changes hands by a condition and a time-out, and a queue in C beside it.
import queue
import sys
import threading

sys.setswitchinterval(0.0001)
items = queue.SimpleQueue()
total = []


def produce(count):
    for item in range(count):
        items.put(item)


def consume(count):
    total.append(sum(items.get() for _ in range(count)))


threads = [threading.Thread(target=produce, args=(10,)), threading.Thread(target=consume, args=(10,))]
for thread in threads:
    thread.start()
for thread in threads:
    thread.join()
sys.exit(0 if total == [45] else 1)
