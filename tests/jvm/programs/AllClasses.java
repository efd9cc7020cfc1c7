import java.io.File;
import java.net.URI;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.FileSystems;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.jar.JarFile;
import java.util.stream.Collectors;
import java.util.stream.Stream;

/**
 * Defines every class of java.base and of the jars given, without initialising it: AllClasses JAR... Prints how many came
 * up, how many did not (for want of optional libraries), a sum over what their class objects tell, and the time.
 */
public final class AllClasses {
    public static void main(String[] args) throws Exception {
        List<String> names = platformClasses();
        List<URL> jars = new ArrayList<>();
        for (String jar : args) {
            jars.add(new File(jar).toURI().toURL());
            try (JarFile file = new JarFile(jar)) {
                names.addAll(file.stream().map(entry -> entry.getName()).filter(name -> name.endsWith(".class"))
                        .filter(name -> !name.contains("META-INF") && !name.endsWith("-info.class"))
                        .map(AllClasses::className).collect(Collectors.toList()));
            }
        }
        int loaded = 0;
        int refused = 0;
        long shape = 0;
        long start = System.nanoTime();
        try (URLClassLoader loader = new URLClassLoader(jars.toArray(new URL[0]), null)) {
            for (String name : names) {
                try {
                    Class<?> type = Class.forName(name, false, loader);
                    loaded++;
                    shape = shape * 31 + type.getModifiers() + type.getInterfaces().length;
                } catch (LinkageError | ClassNotFoundException e) {
                    refused++;
                }
            }
        }
        System.out.println("loaded " + loaded + " refused " + refused + " shape " + shape);
        System.out.println("ms " + (System.nanoTime() - start) / 1_000_000);
    }

    private static List<String> platformClasses() throws Exception {
        Path base = FileSystems.getFileSystem(URI.create("jrt:/")).getPath("modules", "java.base");
        try (Stream<Path> files = Files.walk(base)) {
            return files.map(file -> base.relativize(file).toString()).filter(name -> name.endsWith(".class"))
                    .filter(name -> !name.endsWith("-info.class")).map(AllClasses::className)
                    .collect(Collectors.toCollection(ArrayList::new));
        }
    }

    private static String className(String file) {
        return file.substring(0, file.length() - ".class".length()).replace('/', '.');
    }
}
