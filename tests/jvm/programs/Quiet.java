/** An application that prints one line on each stream and ends. */
public final class Quiet {
    public static void main(String[] args) throws Exception {
        System.out.println("application output");
        System.err.println("application error");
        if (args.length > 0) {
            Thread.sleep(Long.parseLong(args[0]));
        }
    }
}
