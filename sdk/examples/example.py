"""One call as a JSON text, and one direct call, whose value comes by callback."""
import sys

import zorvalis


def text(result, function, cookie):
    print(f"function {function}, cookie {cookie}: {result}")


try:
    with zorvalis.Client(text=text, wait=10) as client:  # 10 s for a service that is just starting
        print(client.BigDataServiceCall('{"function":9,"version":1}'))
        client.GetModelName(7)
except zorvalis.Error as error:
    sys.exit(f"the service cannot be asked: {error} ({error.status})")
