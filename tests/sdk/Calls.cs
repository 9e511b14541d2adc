// As calls.c, in C#.
using System;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Text;

static class Calls
{
    static object Given(Type type, string word)
    {
        return type == typeof(bool) ? word != "0" : Convert.ChangeType(word, type);
    }

    static int Main()
    {
        var input = new StreamReader(Console.OpenStandardInput(), new UTF8Encoding(false));
        var output = new StreamWriter(Console.OpenStandardOutput(), new UTF8Encoding(false)) { NewLine = "\n" };
        var callbacks = new Zorvalis.Callbacks {
            TestData = (result, cookie) => output.WriteLine("testData\t{0}\t{1}", result, cookie),
            Text = (result, function, cookie) => output.WriteLine("text\t{0}\t{1}\t{2}", result, function, cookie),
            Flag = (result, function, cookie) =>
                output.WriteLine("flag\t{0}\t{1}\t{2}", result ? 1 : 0, function, cookie),
            Integer = (result, function, cookie) =>
                output.WriteLine("integer\t{0}\t{1}\t{2}", result, function, cookie) };
        var options = new Zorvalis.Options { Wait = TimeSpan.FromMinutes(2), Limit = TimeSpan.FromMinutes(2) };
        using (output)
        using (var client = new Zorvalis.Client(callbacks, options))
            for (string line; (line = input.ReadLine()) != null;)
            {
                string[] words = line.Split('\t');
                MethodInfo method = typeof(Zorvalis.Client).GetMethod(words[0]);
                object[] given =
                    method.GetParameters().Select((p, at) => Given(p.ParameterType, words[at + 1])).ToArray();
                object answer = null;
                int status = 0;
                try
                {
                    answer = method.Invoke(client, given);
                }
                catch (TargetInvocationException error) when (error.InnerException is Zorvalis.ZorvalisException)
                {
                    status = (int)((Zorvalis.ZorvalisException)error.InnerException).Status;
                }
                output.WriteLine("=\t{0}\t{1}", status, answer is bool ? ((bool)answer ? "1" : "0") : answer);
            }
        return 0;
    }
}
