// One call as a JSON text, and one direct call, whose value comes by callback.
using System;

static class Example
{
    static int Main()
    {
        var callbacks = new Zorvalis.Callbacks {
            Text = (result, function, cookie) =>
                Console.WriteLine("function {0}, cookie {1}: {2}", function, cookie, result) };
        var options = new Zorvalis.Options { Wait = TimeSpan.FromSeconds(10) };  // for a service that is just starting
        try
        {
            using (var client = new Zorvalis.Client(callbacks, options))
            {
                Console.WriteLine(client.BigDataServiceCall("{\"function\":9,\"version\":1}"));
                client.GetModelName(7);
            }
        }
        catch (Zorvalis.ZorvalisException error)
        {
            Console.Error.WriteLine("the service cannot be asked: {0} ({1})", error.Message, (int)error.Status);
            return 1;
        }
        return 0;
    }
}
