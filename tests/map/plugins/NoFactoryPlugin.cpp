// A library that is no map plug-in: it lacks the "createMap" factory.

extern "C" int createSomethingElse()
{
    return 0;
}
