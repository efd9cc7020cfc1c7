/** An application that prints one line on each stream, stays for args[0] ms and ends with exit code args[1]. */
public final class Quiet {
    public static void main(String[] args) throws Exception {
        System.out.println("application output");
        System.err.println("application error");
        if (args.length > 0) {
            Thread.sleep(Long.parseLong(args[0]));
        }
        if (args.length > 1) {
            System.exit(Integer.parseInt(args[1]));
        }
    }
}
