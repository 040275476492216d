// Prints what the managed marshaller makes of the declarations in Perilink.cs, for
// make_bindings.py --layout: "RECORD size", "RECORD.MEMBER offset" and "ENUM.MEMBER value".
using System;
using System.Reflection;
using System.Runtime.InteropServices;

namespace Perilink
{
    internal static class Layout
    {
        private static void Main()
        {
            foreach (Type type in typeof(Layout).Assembly.GetTypes())
            {
                if (type.IsEnum || type == typeof(Constants)) PrintConstants(type);
                else if (type.IsValueType && type.StructLayoutAttribute.Pack == 1) PrintRecord(type);
            }
        }

        private static void PrintConstants(Type type)
        {
            foreach (FieldInfo field in type.GetFields(
                BindingFlags.Static | BindingFlags.Public | BindingFlags.NonPublic))
                Console.WriteLine($"{type.Name}.{field.Name} {Convert.ToInt64(field.GetValue(null))}");
        }

        private static void PrintRecord(Type type)
        {
            Console.WriteLine($"{type.Name} {Marshal.SizeOf(type)}");
            foreach (FieldInfo field in type.GetFields())
                Console.WriteLine($"{type.Name}.{field.Name} {Marshal.OffsetOf(type, field.Name)}");
        }
    }
}
